#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "camera/pipeline/pipeline.h"
#include "camera/simulation/sequence.h"

namespace kova::camera {

/// A few frames of a simulated rig with the residual errors of a real one.
struct SimulatedDrive {
    SimulatedRig rig;
    std::vector<DecodedFrame> frames;
    PipelineSettings settings;

    SimulatedDrive(const std::string& scene, RigOptions options, int count) {
        options.seed = 5;
        rig = makeRig(options);
        SimulatedSequence sequence(Renderer(std::move(makeScene(scene, 5).value()), rig), {});
        FrameDecoder decoder(sequence.stream());
        RawFrame raw;
        for (int i = 0; i < count; ++i) {
            EXPECT_TRUE(sequence.next(raw).ok());
            DecodedFrame& frame = frames.emplace_back();
            EXPECT_TRUE(decoder.decode(raw, frame.pair).ok());
            frame.t_ns = raw.t_ns;
            frame.position = i;
        }
    }

    std::unique_ptr<Pipeline> open() {
        Status status;
        auto pipeline = Pipeline::make(rig.given, status);
        EXPECT_TRUE(pipeline) << status.message();
        settings.distance = DistanceRange(pipeline->geometry());
        return pipeline;
    }
    void run(Pipeline& pipeline) const {
        for (const DecodedFrame& frame : frames)
            ASSERT_TRUE(pipeline.process(frame, settings).ok());
    }
};

}  // namespace kova::camera
