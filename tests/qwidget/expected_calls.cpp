#include "tests/qwidget/expected_calls.h"

#include <cmath>

#include "tests/support/support_double.h"

namespace kova::test {

Calls cameraCalls(float offset, int width, int height) {
    const auto scale = [](float degrees) {
        const auto angle = static_cast<float>(static_cast<double>(degrees) * M_PI / 180.0);
        return 1.0f / static_cast<float>(std::tan(static_cast<double>(angle * 0.5f)));
    };
    const float vfov = static_cast<float>(height) * 60.0f / static_cast<float>(width);
    const std::vector<float> projection{scale(60), 0,           0,  0, 0, scale(vfov),   0, 0, 0,
                                        0,         -1.0000005f, -1, 0, 0, -0.020000005f, 0};
    const std::vector<float> view{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, -offset, 1};
    return {callText("glMatrixMode", GL_PROJECTION),
            "glLoadIdentity()",
            callText("glLoadMatrixf", projection),
            callText("glMatrixMode", GL_MODELVIEW),
            "glLoadIdentity()",
            callText("glLoadMatrixf", view)};
}

Calls bodyCalls() {
    const BodyModel body;
    Calls calls;
    for (std::size_t i = 0; i < body.normals.size(); ++i) {
        const Size3_<float>& n = body.normals[i];
        append(calls, {callText("glNormal3fv", std::vector<float>{n.x, n.y, n.z}),
                       callText("glBegin", GL_TRIANGLES), "glColor3f(0.8, 0.8, 0.8)"});
        for (const Size3_<float>& p : {body.first[i], body.second[i], body.third[i]})
            calls.push_back(callText("glVertex3f", p.x, p.y, p.z));
        calls.push_back("glEnd()");
    }
    return calls;
}

Calls litSceneCalls() {
    return {callText("glEnable", GL_DEPTH_TEST),
            callText("glEnable", GL_MULTISAMPLE),
            callText("glMaterialfv", GL_FRONT, GL_SPECULAR, "[1 1 1 1]"),
            callText("glMaterialfv", GL_FRONT, GL_SHININESS, "[128]"),
            callText("glLightfv", GL_LIGHT0, GL_POSITION, "[1 1 1 1]"),
            callText("glLightModelfv", GL_LIGHT_MODEL_AMBIENT, "[0.2 0.2 0.2 1]"),
            callText("glEnable", GL_LIGHT0),
            callText("glEnable", GL_LIGHTING),
            callText("glEnable", GL_COLOR_MATERIAL),
            "ModelFile_STL::get_quelvar_model_vector()"};
}

}  // namespace kova::test
