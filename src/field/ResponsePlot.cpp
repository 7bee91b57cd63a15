#include "field/ResponsePlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace {
constexpr int kWidth = 900;
constexpr int kPanelHeight = 220;
constexpr int kLeftMargin = 70;
constexpr int kRightMargin = 20;
constexpr int kTop = 30;
constexpr int kGap = 60;
// A panel shows at most two points (the least and the greatest) per column of this width.
constexpr int kColumns = (kWidth - kLeftMargin - kRightMargin);

std::string number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", v);
    return text;
}

// One panel: a frame, ticks and labels on both axes, the caption above and the series as a
// polyline of each column's extremes.
void panel(std::ostringstream &svg, int iTop, const std::string &caption, const float *pfValues,
           int n, int iRate, bool bDecibels, float fMin, float fMax) {
    const int x0 = kLeftMargin;
    const int plotWidth = kColumns;
    const double fLastMs = n > 1 ? (n - 1) * 1000.0 / iRate : 1.0;
    svg << "<text x='" << x0 << "' y='" << iTop - 8 << "' font-size='14'>" << caption
        << "</text>\n";
    svg << "<rect x='" << x0 << "' y='" << iTop << "' width='" << plotWidth << "' height='"
        << kPanelHeight << "' fill='none' stroke='black'/>\n";
    for (int t = 0; t <= 4; ++t) {
        const double v = fMin + (fMax - fMin) * t / 4.0;
        const double y = iTop + kPanelHeight - kPanelHeight * t / 4.0;
        svg << "<text x='" << x0 - 6 << "' y='" << y + 4 << "' font-size='11' text-anchor='end'>"
            << number(v) << "</text>\n";
        const double ms = fLastMs * t / 4.0;
        const double x = x0 + plotWidth * t / 4.0;
        svg << "<text x='" << x << "' y='" << iTop + kPanelHeight + 16
            << "' font-size='11' text-anchor='middle'>" << number(ms) << "</text>\n";
    }
    svg << "<text x='" << x0 + plotWidth << "' y='" << iTop + kPanelHeight + 30
        << "' font-size='11' text-anchor='end'>ms</text>\n";
    if (pfValues == nullptr || n < 1) {
        return;
    }
    auto value = [&](int i) {
        float v = pfValues[i];
        if (bDecibels) {
            v = 20.0f * std::log10(std::max(v, 0.0001f));
        }
        return std::clamp(std::isfinite(v) ? v : fMin, fMin, fMax);
    };
    auto yOf = [&](float v) {
        return iTop + kPanelHeight - kPanelHeight * (v - fMin) / (fMax - fMin);
    };
    svg << "<polyline fill='none' stroke='steelblue' stroke-width='1' points='";
    const int columns = std::min(n, plotWidth);
    for (int c = 0; c < columns; ++c) {
        const int from = static_cast<int>(static_cast<long long>(c) * n / columns);
        const int to =
            std::max(from + 1, static_cast<int>(static_cast<long long>(c + 1) * n / columns));
        float lo = value(from);
        float hi = lo;
        for (int i = from + 1; i < to; ++i) {
            lo = std::min(lo, value(i));
            hi = std::max(hi, value(i));
        }
        const double x = x0 + (n > 1 ? plotWidth * static_cast<double>(from) / (n - 1) : 0.0);
        svg << number(x) << ',' << number(yOf(lo)) << ' ';
        if (hi != lo) {
            svg << number(x) << ',' << number(yOf(hi)) << ' ';
        }
    }
    svg << "'/>\n";
}
}  // namespace

int WriteResponsePlot(const std::string &strPath, const SResponsePlot &plot) {
    const int iRate = plot.iSampleRate > 0 ? plot.iSampleRate : 44100;
    const int height = kTop + 3 * (kPanelHeight + kGap);
    std::ostringstream svg;
    svg << "<svg xmlns='http://www.w3.org/2000/svg' width='" << kWidth << "' height='" << height
        << "' font-family='sans-serif'>\n<rect width='100%' height='100%' fill='white'/>\n";
    panel(svg, kTop, "Left", plot.pfLeft, plot.iLength, iRate, false, -0.3f, 0.3f);
    panel(svg, kTop + kPanelHeight + kGap, "Right", plot.pfRight, plot.iLength, iRate, false, -0.3f,
          0.3f);
    char caption[128];
    std::snprintf(caption, sizeof caption, "Echogram, RT60: %.2f (s), Total images: %d / Used: %d",
                  static_cast<double>(plot.fRT60), plot.iImagesTotal, plot.iImagesUsed);
    panel(svg, kTop + 2 * (kPanelHeight + kGap), caption, plot.pfEchogram, plot.iEchogramLength,
          iRate, true, -80.0f, 0.0f);
    svg << "</svg>\n";

    const std::string temporary = strPath + ".part";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << svg.str();
        if (!out.good()) {
            std::remove(temporary.c_str());
            return -1;
        }
    }
    if (std::rename(temporary.c_str(), strPath.c_str()) != 0) {
        std::remove(temporary.c_str());
        return -1;
    }
    return 0;
}
