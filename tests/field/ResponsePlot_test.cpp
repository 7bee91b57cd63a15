// The response graph: axes scaled to the data with round ticks, one time axis for the three
// panels, every axis named with its unit.
#include "field/ResponsePlot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "support/WaveWriter.h"

namespace {
struct Point {
    double x;
    double y;
};

struct Drawing {
    std::vector<double> frameTops;                 // one per panel
    std::vector<std::vector<Point>> lines;         // one polyline per panel
    std::vector<std::vector<std::string>> xTicks;  // labels, per panel
    std::vector<std::vector<std::string>> yTicks;
    std::vector<std::string> axisLabels;
};

std::vector<std::string> all(const std::string &text, const std::string &pattern) {
    std::vector<std::string> found;
    const std::regex re(pattern);
    for (auto it = std::sregex_iterator(text.begin(), text.end(), re); it != std::sregex_iterator();
         ++it) {
        found.push_back((*it)[1]);
    }
    return found;
}

// Cuts the SVG at each panel's frame and reads what each panel holds.
Drawing read(const std::string &path) {
    std::ifstream in(path);
    const std::string svg((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Drawing d;
    for (const std::string &y : all(svg, "class='frame' x='[0-9]+' y='([0-9.]+)'")) {
        d.frameTops.push_back(std::stod(y));
    }
    d.axisLabels = all(svg, "class='axis-label'[^>]*>([^<]*)<");
    std::vector<size_t> starts;
    for (size_t at = svg.find("class='frame'"); at != std::string::npos;
         at = svg.find("class='frame'", at + 1)) {
        starts.push_back(at);
    }
    for (size_t p = 0; p < starts.size(); ++p) {
        const size_t end = p + 1 < starts.size() ? starts[p + 1] : svg.size();
        const std::string part = svg.substr(starts[p], end - starts[p]);
        d.xTicks.push_back(all(part, "class='tick-x'[^>]*>([^<]*)<"));
        d.yTicks.push_back(all(part, "class='tick-y'[^>]*>([^<]*)<"));
        std::vector<Point> line;
        for (const std::string &points : all(part, "<polyline[^>]*points='([^']*)'")) {
            double x = 0.0;
            double y = 0.0;
            for (size_t at = 0; std::sscanf(points.c_str() + at, "%lf,%lf", &x, &y) == 2;) {
                line.push_back({x, y});
                at = points.find(' ', at);
                if (at == std::string::npos) {
                    break;
                }
                ++at;
            }
        }
        d.lines.push_back(line);
    }
    return d;
}

// A tick of 1, 2 or 5 times a power of ten, or a whole multiple of the step between ticks.
void expectRoundTicks(const std::vector<std::string> &ticks) {
    ASSERT_GE(ticks.size(), 3u);
    const double step = std::stod(ticks[1]) - std::stod(ticks[0]);
    const double power = std::pow(10.0, std::floor(std::log10(step) + 1e-9));
    const double mantissa = step / power;
    EXPECT_TRUE(std::fabs(mantissa - 1) < 1e-6 || std::fabs(mantissa - 2) < 1e-6 ||
                std::fabs(mantissa - 5) < 1e-6)
        << "step " << step;
    for (const std::string &tick : ticks) {
        const double k = std::stod(tick) / step;
        EXPECT_NEAR(k, std::round(k), 1e-6) << tick << " is not a multiple of " << step;
    }
}

double lowestY(const std::vector<Point> &line) {
    double y = 1e9;
    for (const Point &p : line) {
        y = std::min(y, p.y);
    }
    return y;
}
double highestY(const std::vector<Point> &line) {
    double y = -1e9;
    for (const Point &p : line) {
        y = std::max(y, p.y);
    }
    return y;
}
double lastX(const std::vector<Point> &line) {
    return line.empty() ? 0.0 : line.back().x;
}

constexpr double kPanelHeight = 220.0;
}  // namespace

TEST(ResponsePlot, AxesFitTheDataWithRoundTicksOnOneTimeAxis) {
    // 61.45 ms of response with a direct sound of 0.325; an echogram of 50.6 ms.
    std::vector<float> left(2711, 0.0f), right(2711, 0.0f), echogram(2232, 0.0f);
    left[200] = 0.325f;
    left[300] = -0.2f;
    right[220] = 0.1f;
    echogram[200] = 0.7f;
    echogram[2231] = 0.01f;
    SResponsePlot plot;
    plot.pfLeft = left.data();
    plot.pfRight = right.data();
    plot.iLength = static_cast<int>(left.size());
    plot.pfEchogram = echogram.data();
    plot.iEchogramLength = static_cast<int>(echogram.size());
    const std::string path = qktest::ScratchPath("plot_shoebox.svg");
    ASSERT_EQ(WriteResponsePlot(path, plot), 0);
    const Drawing d = read(path);
    ASSERT_EQ(d.frameTops.size(), 3u);
    ASSERT_EQ(d.lines.size(), 3u);

    // The direct sound stands inside the frame, not cut at its edge.
    EXPECT_GT(lowestY(d.lines[0]), d.frameTops[0] + 1.0);
    EXPECT_LT(highestY(d.lines[0]), d.frameTops[0] + kPanelHeight - 1.0);
    // One time axis: the same ticks under every panel, reaching past the last sample; the
    // echogram ends where its 50.6 ms fall, before the response's 61.45 ms.
    EXPECT_EQ(d.xTicks[0], d.xTicks[1]);
    EXPECT_EQ(d.xTicks[0], d.xTicks[2]);
    EXPECT_GE(std::stod(d.xTicks[0].back()), 61.45);
    EXPECT_LT(lastX(d.lines[2]), lastX(d.lines[0]) - 100.0);
    EXPECT_NEAR(lastX(d.lines[2]) / lastX(d.lines[0]), 1.0, 0.2);
    for (size_t p = 0; p < 3; ++p) {
        SCOPED_TRACE(p);
        expectRoundTicks(d.xTicks[p]);
        expectRoundTicks(d.yTicks[p]);
    }
    // Both ears on one amplitude axis; every axis named with its unit.
    EXPECT_EQ(d.yTicks[0], d.yTicks[1]);
    EXPECT_EQ(std::count(d.axisLabels.begin(), d.axisLabels.end(), "time (ms)"), 3);
    EXPECT_EQ(std::count(d.axisLabels.begin(), d.axisLabels.end(), "level (dB)"), 1);
    EXPECT_EQ(std::count_if(d.axisLabels.begin(), d.axisLabels.end(),
                            [](const std::string &l) { return l.rfind("amplitude", 0) == 0; }),
              2);
    std::remove(path.c_str());
}

TEST(ResponsePlot, AQuietHallResponseFillsItsPanel) {
    // A hall: the listener far from the source, nothing above a hundredth.
    std::vector<float> left(20000, 0.0f), right(20000, 0.0f), echogram(20000, 0.0f);
    for (size_t i = 1000; i < left.size(); i += 37) {
        const float decay = 0.01f * std::exp(-static_cast<float>(i) / 8000.0f);
        left[i] = (i / 37) % 2 == 0 ? decay : -decay;
        right[i] = -left[i];
        echogram[i] = decay;
    }
    SResponsePlot plot;
    plot.pfLeft = left.data();
    plot.pfRight = right.data();
    plot.iLength = static_cast<int>(left.size());
    plot.pfEchogram = echogram.data();
    plot.iEchogramLength = static_cast<int>(echogram.size());
    const std::string path = qktest::ScratchPath("plot_hall.svg");
    ASSERT_EQ(WriteResponsePlot(path, plot), 0);
    const Drawing d = read(path);
    ASSERT_EQ(d.lines.size(), 3u);
    for (size_t p = 0; p < 2; ++p) {
        EXPECT_GT(highestY(d.lines[p]) - lowestY(d.lines[p]), kPanelHeight / 2) << "panel " << p;
    }
    // The echogram's loudest image (-40 dB) stands within the top 10 of the panel's 60 dB.
    EXPECT_LT(lowestY(d.lines[2]), d.frameTops[2] + kPanelHeight / 6 + 1.0);
    std::remove(path.c_str());
}
