#include "bench/detection/fit_stixels.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

namespace kova::bench {

namespace {

using camera::JudgeCurve;
using camera::kStixelFeatures;
using camera::StixelJudge;

constexpr int kKnots = JudgeCurve::kKnots;
constexpr double kRidge = 0.3;  // on every value
constexpr double kSmooth = 10;  // on second differences
constexpr int kIterations = 15;
constexpr bool kRises[kStixelFeatures] = {
    false, false, true,  true,  false, false, false, false, false,
    false, false, false, false, true,  true,  false, true,  false,
};

/// What one sample says of one curve: its position among the knots.
struct Place {
    int knot = -1;  ///< -1: not known
    double part = 0;
};

Place placeOf(const JudgeCurve& curve, float x) {
    if (std::isnan(x))
        return {};
    if (x <= curve.at.front())
        return {0, 0};
    for (int i = 1; i < kKnots; ++i)
        if (x < curve.at[i])
            return {i - 1, (x - curve.at[i - 1]) / (curve.at[i] - curve.at[i - 1])};
    return {kKnots - 2, 1};
}

void setKnots(std::vector<float> values, JudgeCurve& curve) {
    std::sort(values.begin(), values.end());
    curve.value.fill(0);
    if (values.empty())
        values.push_back(0);
    const float least = 1e-3f * std::max(1e-3f, values.back() - values.front());
    for (int i = 0; i < kKnots; ++i) {
        const double share = 0.01 + 0.98 * i / (kKnots - 1);
        const auto at = static_cast<std::size_t>(share * static_cast<double>(values.size() - 1));
        curve.at[i] = values[at];
        if (i > 0)
            curve.at[i] = std::max(curve.at[i], curve.at[i - 1] + least);
    }
}

double sigmoid(double x) {
    return 1 / (1 + std::exp(-x));
}

/// Penalised logistic regression of sums of curves. `slope`: an offset per sample and its factor.
class CurveFit {
public:
    CurveFit(std::vector<JudgeCurve*> curves, std::vector<bool> rises)
        : curves_(std::move(curves)), rises_(std::move(rises)) {}

    void add(const std::vector<float>& x, double offset, bool is_true, double weight) {
        for (std::size_t c = 0; c < curves_.size(); ++c)
            places_.push_back(placeOf(*curves_[c], x[c]));
        offsets_.push_back(offset);
        truth_.push_back(is_true);
        weights_.push_back(weight);
    }

    void run(float& bias, float& slope) {
        fixed_.assign(curves_.size(), false);
        iterate(bias, slope);
        // Those that must rise are made to, one after the other; the rest makes up for it.
        for (std::size_t c = 0; c < curves_.size(); ++c) {
            if (!rises_[c])
                continue;
            makeRise(*curves_[c], c);
            fixed_[c] = true;
            iterate(bias, slope);
        }
        centre(bias);
    }

private:
    void iterate(float& bias, float& slope) {
        const int count = static_cast<int>(curves_.size());
        const int size = count * kKnots + 2;
        Eigen::VectorXd x = Eigen::VectorXd::Zero(size);
        for (int c = 0; c < count; ++c)
            for (int k = 0; k < kKnots; ++k) x[c * kKnots + k] = curves_[c]->value[k];
        x[size - 2] = bias;
        x[size - 1] = slope;
        for (int round = 0; round < kIterations; ++round) {
            Eigen::MatrixXd matrix = Eigen::MatrixXd::Zero(size, size);
            Eigen::VectorXd side = Eigen::VectorXd::Zero(size);
            std::vector<std::pair<int, double>> row;
            for (std::size_t i = 0; i < truth_.size(); ++i) {
                row.clear();
                for (int c = 0; c < count; ++c) {
                    const Place& p = places_[i * count + c];
                    if (p.knot < 0)
                        continue;
                    row.emplace_back(c * kKnots + p.knot, 1 - p.part);
                    row.emplace_back(c * kKnots + p.knot + 1, p.part);
                }
                row.emplace_back(size - 2, 1);
                row.emplace_back(size - 1, offsets_[i]);
                double odds = 0;
                for (const auto& [at, value] : row) odds += value * x[at];
                const double p = sigmoid(odds);
                const double w = weights_[i] * std::max(1e-5, p * (1 - p));
                const double error = weights_[i] * ((truth_[i] ? 1.0 : 0.0) - p);
                for (const auto& [at, value] : row) {
                    side[at] += value * error;
                    for (const auto& [other, factor] : row) matrix(at, other) += w * value * factor;
                }
            }
            for (int c = 0; c < count; ++c) {
                for (int k = 0; k < kKnots; ++k) {
                    matrix(c * kKnots + k, c * kKnots + k) += kRidge;
                    side[c * kKnots + k] -= kRidge * x[c * kKnots + k];
                }
                for (int k = 1; k + 1 < kKnots; ++k) {
                    const int at[3] = {c * kKnots + k - 1, c * kKnots + k, c * kKnots + k + 1};
                    constexpr double kDifference[3] = {1, -2, 1};
                    double bend = 0;
                    for (int i = 0; i < 3; ++i) bend += kDifference[i] * x[at[i]];
                    for (int i = 0; i < 3; ++i) {
                        side[at[i]] -= kSmooth * kDifference[i] * bend;
                        for (int j = 0; j < 3; ++j)
                            matrix(at[i], at[j]) += kSmooth * kDifference[i] * kDifference[j];
                    }
                }
                if (fixed_[c])
                    for (int k = 0; k < kKnots; ++k) {
                        matrix(c * kKnots + k, c * kKnots + k) += 1e12;
                    }
            }
            matrix(size - 1, size - 1) += 1e-6;
            matrix(size - 2, size - 2) += 1e-6;
            const Eigen::VectorXd step = matrix.ldlt().solve(side);
            x += step;
            if (step.norm() < 1e-4)
                break;
        }
        for (int c = 0; c < count; ++c)
            for (int k = 0; k < kKnots; ++k)
                curves_[c]->value[k] = static_cast<float>(x[c * kKnots + k]);
        bias = static_cast<float>(x[size - 2]);
        slope = static_cast<float>(x[size - 1]);
    }

    std::array<double, kKnots> masses(std::size_t c) const {
        std::array<double, kKnots> mass{};
        for (std::size_t i = 0; i < truth_.size(); ++i) {
            const Place& p = places_[i * curves_.size() + c];
            if (p.knot < 0)
                continue;
            mass[p.knot] += weights_[i] * (1 - p.part);
            mass[p.knot + 1] += weights_[i] * p.part;
        }
        return mass;
    }

    void makeRise(JudgeCurve& curve, std::size_t c) {
        const auto mass = masses(c);
        struct Pool {
            double sum, mass;
            int knots;
        };
        std::vector<Pool> pools;
        for (int k = 0; k < kKnots; ++k) {
            pools.push_back({curve.value[k] * (mass[k] + 1), mass[k] + 1, 1});
            while (pools.size() > 1 && pools[pools.size() - 2].sum / pools[pools.size() - 2].mass >=
                                           pools.back().sum / pools.back().mass) {
                const Pool last = pools.back();
                pools.pop_back();
                pools.back().sum += last.sum;
                pools.back().mass += last.mass;
                pools.back().knots += last.knots;
            }
        }
        int k = 0;
        for (const Pool& pool : pools)
            for (int i = 0; i < pool.knots; ++i)
                curve.value[k++] = static_cast<float>(pool.sum / pool.mass);
    }

    /// The mean of every curve goes to the bias, so that what is not known has no say.
    void centre(float& bias) {
        for (std::size_t c = 0; c < curves_.size(); ++c) {
            const auto mass = masses(c);
            double sum = 0, all = 0;
            for (int k = 0; k < kKnots; ++k) {
                sum += mass[k] * curves_[c]->value[k];
                all += mass[k];
            }
            const double mean = all > 0 ? sum / all : 0;
            for (float& value : curves_[c]->value) value -= static_cast<float>(mean);
            bias += static_cast<float>(mean);
        }
    }

    std::vector<JudgeCurve*> curves_;
    std::vector<bool> rises_;
    std::vector<bool> fixed_;
    std::vector<Place> places_;
    std::vector<double> offsets_, weights_;
    std::vector<bool> truth_;
};

/// What the neighbours say, for every sample: the sums that the product forms.
struct Context {
    double own = 0;  ///< odds
    float near = 0;
};

std::vector<Context> contextsOf(const std::vector<StixelSample>& samples,
                                const StixelJudge& judge) {
    std::vector<Context> contexts(samples.size());
    std::map<std::pair<int, int>, std::vector<std::size_t>> groups;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        contexts[i].own = judge.ownOdds(samples[i].features);
        groups[{samples[i].frame, samples[i].group}].push_back(i);
    }
    for (const auto& [key, members] : groups) {
        for (const std::size_t i : members)
            for (const std::size_t k : members)
                if (const int apart = std::abs(samples[k].column - samples[i].column);
                    apart >= 1 && apart <= camera::kNearColumns)
                    contexts[i].near += static_cast<float>(sigmoid(contexts[k].own));
    }
    return contexts;
}

/// One for each thing and each false alarm, however wide: so many columns of a near wall would
/// drown the post beside it.
std::vector<double> weightsOf(const std::vector<StixelSample>& samples) {
    std::map<std::pair<std::pair<int, int>, bool>, int> sizes;
    const auto key = [](const StixelSample& s) {
        return std::make_pair(std::make_pair(s.frame, s.group), s.is_true);
    };
    for (const StixelSample& s : samples) ++sizes[key(s)];
    std::vector<double> weights;
    for (const StixelSample& s : samples) weights.push_back(1.0 / sizes[key(s)]);
    return weights;
}

double oddsOf(const StixelJudge& judge, const Context& context) {
    return judge.own_weight * context.own + judge.near(context.near);
}

}  // namespace

StixelJudge fitStixelJudge(const std::vector<StixelSample>& samples) {
    StixelJudge judge{};
    std::vector<JudgeCurve*> curves;
    for (int f = 0; f < kStixelFeatures; ++f) {
        std::vector<float> values;
        for (const StixelSample& s : samples)
            if (!std::isnan(s.features[f]))
                values.push_back(s.features[f]);
        setKnots(std::move(values), judge.own[f]);
        curves.push_back(&judge.own[f]);
    }
    const std::vector<double> weights = weightsOf(samples);
    CurveFit own(curves, std::vector<bool>(kRises, kRises + kStixelFeatures));
    for (std::size_t i = 0; i < samples.size(); ++i)
        own.add(std::vector<float>(samples[i].features.begin(), samples[i].features.end()), 0,
                samples[i].is_true, weights[i]);
    float slope = 0;
    own.run(judge.bias, slope);

    const std::vector<Context> contexts = contextsOf(samples, judge);
    std::vector<float> near;
    for (const Context& c : contexts) near.push_back(c.near);
    setKnots(near, judge.near);
    CurveFit neighbours({&judge.near}, {true});
    for (std::size_t i = 0; i < samples.size(); ++i)
        neighbours.add({near[i]}, contexts[i].own, samples[i].is_true, weights[i]);
    float bias = 0;
    judge.own_weight = 1;
    neighbours.run(bias, judge.own_weight);
    for (float& value : judge.near.value) value += bias;
    return judge;
}

std::string stixelFitReport(const std::vector<StixelSample>& samples) {
    std::vector<double> odds(samples.size());
    for (const std::uint32_t part : {0u, 1u}) {
        std::vector<StixelSample> others;
        for (const StixelSample& s : samples)
            if (s.seed % 2 != part)
                others.push_back(s);
        const StixelJudge judge = fitStixelJudge(others);
        const std::vector<Context> contexts = contextsOf(samples, judge);
        for (std::size_t i = 0; i < samples.size(); ++i)
            if (samples[i].seed % 2 == part)
                odds[i] = oddsOf(judge, contexts[i]);
    }
    const std::vector<double> weights = weightsOf(samples);
    std::string text;
    for (const double p : {0.3, 0.5, 0.7, 0.8, 0.9, 0.95, 0.97, 0.99}) {
        double hits = 0, things = 0, alarms = 0, others = 0;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            (samples[i].is_true ? things : others) += weights[i];
            if (sigmoid(odds[i]) >= p)
                (samples[i].is_true ? hits : alarms) += weights[i];
        }
        char line[160];
        std::snprintf(line, sizeof line, "// p >= %.2f: %.0f of %.0f things, %.0f of %.0f others\n",
                      p, hits, things, alarms, others);
        text += line;
    }
    return text;
}

std::string stixelJudgeSource(const StixelJudge& judge) {
    std::string text;
    const auto number = [&](float value) {
        char one[32];
        std::snprintf(one, sizeof one, "%.4gf", static_cast<double>(value));
        std::string s = one;
        if (s.find_first_of(".e") == std::string::npos)
            s.insert(s.size() - 1, ".0");
        return s;
    };
    const auto curve = [&](const JudgeCurve& c, const char* indent) {
        std::string s = std::string(indent) + "{{";
        for (int k = 0; k < kKnots; ++k) s += (k ? ", " : "") + number(c.at[k]);
        s += "},\n" + std::string(indent) + " {";
        for (int k = 0; k < kKnots; ++k) s += (k ? ", " : "") + number(c.value[k]);
        return s + "}},\n";
    };
    text += "    " + number(judge.bias) + ",\n    {{\n";
    for (const JudgeCurve& c : judge.own) text += curve(c, "        ");
    text += "    }},\n    " + number(judge.own_weight) + ",\n";
    text += curve(judge.near, "    ");
    return text;
}

}  // namespace kova::bench
