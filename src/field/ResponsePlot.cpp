#include "field/ResponsePlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace {
constexpr int kWidth = 900;
constexpr int kPanelHeight = 220;
constexpr int kLeftMargin = 80;
constexpr int kRightMargin = 20;
constexpr int kTop = 30;
constexpr int kGap = 70;
// A panel shows at most two points (the least and the greatest) per column of this width.
constexpr int kColumns = (kWidth - kLeftMargin - kRightMargin);
// Ticks an axis gets at most; a round step gives between half and all of them.
constexpr int kMaxTicks = 8;
// The echogram shows this many dB below its top; quieter images sit on the bottom edge.
constexpr double kEchogramRangeDb = 60.0;
constexpr double kEchogramFloor = 1e-6;  // values below count as this (-120 dB)

std::string number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", v);
    return text;
}

// One of 1, 2, 5 times a power of ten, the smallest that cuts the span into at most kMaxTicks
// steps.
double roundStep(double span) {
    const double raw = span > 0.0 && std::isfinite(span) ? span / kMaxTicks : 1.0;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0, 10.0}) {
        if (m * power >= raw * (1.0 - 1e-9)) {
            return m * power;
        }
    }
    return 10.0 * power;
}

// The tick's value in as many decimals as the step has.
std::string tickText(double v, double step) {
    const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, std::fabs(v) < step * 1e-6 ? 0.0 : v);
    return text;
}

// An axis from fMin to fMax with ticks every fStep from the first multiple of it.
struct Axis {
    double fMin;
    double fMax;
    double fStep;
    std::string strLabel;
};

// Time from 0 to the last sample of the longer series, rounded up to a tick.
Axis timeAxis(int n, int iRate) {
    const double lastMs = n > 1 ? (n - 1) * 1000.0 / iRate : 1.0;
    const double step = roundStep(lastMs);
    return {0.0, std::ceil(lastMs / step - 1e-9) * step, step, "time (ms)"};
}

// Amplitude symmetric about 0, to the largest magnitude of both ears rounded up to a tick.
Axis amplitudeAxis(const float *pfLeft, const float *pfRight, int n) {
    double peak = 0.0;
    for (const float *pf : {pfLeft, pfRight}) {
        for (int i = 0; pf != nullptr && i < n; ++i) {
            if (std::isfinite(pf[i])) {
                peak = std::max(peak, static_cast<double>(std::fabs(pf[i])));
            }
        }
    }
    peak = peak > 0.0 ? peak : 1.0;
    const double step = roundStep(2.0 * peak);
    const double top = std::ceil(peak / step - 1e-9) * step;
    return {-top, top, step, "amplitude (full scale 1)"};
}

// Level in dB from the echogram's loudest image, rounded up to 10 dB, down kEchogramRangeDb.
Axis levelAxis(const float *pf, int n) {
    double loudest = kEchogramFloor;
    for (int i = 0; pf != nullptr && i < n; ++i) {
        if (std::isfinite(pf[i])) {
            loudest = std::max(loudest, static_cast<double>(std::fabs(pf[i])));
        }
    }
    const double top = std::ceil(20.0 * std::log10(loudest) / 10.0 - 1e-9) * 10.0;
    return {top - kEchogramRangeDb, top, 10.0, "level (dB)"};
}

struct Series {
    const float *pfValues;
    int iCount;
    bool bDecibels;
};

// The frame, the ticks and their values on both axes, and the names of the axes.
void frame(std::ostringstream &svg, int iTop, const std::string &caption, const Axis &time,
           const Axis &value) {
    const int x0 = kLeftMargin;
    const int bottom = iTop + kPanelHeight;
    svg << "<text x='" << x0 << "' y='" << iTop - 8 << "' font-size='14'>" << caption
        << "</text>\n";
    svg << "<rect class='frame' x='" << x0 << "' y='" << iTop << "' width='" << kColumns
        << "' height='" << kPanelHeight << "' fill='none' stroke='black'/>\n";
    const auto yOf = [&](double v) {
        return bottom - kPanelHeight * (v - value.fMin) / (value.fMax - value.fMin);
    };
    const auto xOf = [&](double ms) { return x0 + kColumns * (ms - time.fMin) / time.fMax; };
    for (double v = std::ceil(value.fMin / value.fStep - 1e-9) * value.fStep;
         v <= value.fMax + value.fStep * 1e-6; v += value.fStep) {
        svg << "<line x1='" << x0 - 4 << "' x2='" << x0 << "' y1='" << number(yOf(v)) << "' y2='"
            << number(yOf(v)) << "' stroke='black'/>\n";
        svg << "<text class='tick-y' x='" << x0 - 7 << "' y='" << number(yOf(v) + 4)
            << "' font-size='11' text-anchor='end'>" << tickText(v, value.fStep) << "</text>\n";
    }
    for (double ms = 0.0; ms <= time.fMax + time.fStep * 1e-6; ms += time.fStep) {
        svg << "<line x1='" << number(xOf(ms)) << "' x2='" << number(xOf(ms)) << "' y1='" << bottom
            << "' y2='" << bottom + 4 << "' stroke='black'/>\n";
        svg << "<text class='tick-x' x='" << number(xOf(ms)) << "' y='" << bottom + 16
            << "' font-size='11' text-anchor='middle'>" << tickText(ms, time.fStep) << "</text>\n";
    }
    svg << "<text class='axis-label' x='" << x0 + kColumns / 2 << "' y='" << bottom + 34
        << "' font-size='12' text-anchor='middle'>" << time.strLabel << "</text>\n";
    const int middle = iTop + kPanelHeight / 2;
    svg << "<text class='axis-label' x='18' y='" << middle << "' font-size='12' "
        << "text-anchor='middle' transform='rotate(-90 18 " << middle << ")'>" << value.strLabel
        << "</text>\n";
}

// One panel: its frame and the series as a polyline of each column's extremes, against the
// shared time axis.
void panel(std::ostringstream &svg, int iTop, const std::string &caption, const Series &series,
           int iRate, const Axis &time, const Axis &value) {
    frame(svg, iTop, caption, time, value);
    const int n = series.iCount;
    if (series.pfValues == nullptr || n < 1) {
        return;
    }
    auto at = [&](int i) {
        double v = series.pfValues[i];
        if (series.bDecibels) {
            v = 20.0 * std::log10(std::max(std::fabs(v), kEchogramFloor));
        }
        return std::clamp(std::isfinite(v) ? v : value.fMin, value.fMin, value.fMax);
    };
    const double msPerSample = 1000.0 / iRate;
    // Columns of the panel this series reaches; each shows its samples' least and greatest.
    const int columns = std::clamp(
        static_cast<int>(std::ceil(kColumns * (n - 1) * msPerSample / time.fMax)) + 1, 1, kColumns);
    svg << "<polyline fill='none' stroke='steelblue' stroke-width='1' points='";
    for (int c = 0; c < columns; ++c) {
        const int from = static_cast<int>(static_cast<long long>(c) * n / columns);
        const int to =
            std::max(from + 1, static_cast<int>(static_cast<long long>(c + 1) * n / columns));
        double lo = at(from);
        double hi = lo;
        for (int i = from + 1; i < to; ++i) {
            lo = std::min(lo, at(i));
            hi = std::max(hi, at(i));
        }
        const double x = kLeftMargin + kColumns * (from * msPerSample) / time.fMax;
        const auto yOf = [&](double v) {
            return iTop + kPanelHeight -
                   kPanelHeight * (v - value.fMin) / (value.fMax - value.fMin);
        };
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
    const Axis time = timeAxis(std::max(plot.iLength, plot.iEchogramLength), iRate);
    const Axis amplitude = amplitudeAxis(plot.pfLeft, plot.pfRight, plot.iLength);
    std::ostringstream svg;
    svg << "<svg xmlns='http://www.w3.org/2000/svg' width='" << kWidth << "' height='" << height
        << "' font-family='sans-serif'>\n<rect width='100%' height='100%' fill='white'/>\n";
    panel(svg, kTop, "Left", {plot.pfLeft, plot.iLength, false}, iRate, time, amplitude);
    panel(svg, kTop + kPanelHeight + kGap, "Right", {plot.pfRight, plot.iLength, false}, iRate,
          time, amplitude);
    char caption[128];
    std::snprintf(caption, sizeof caption, "Echogram, RT60: %.2f (s), Total images: %d / Used: %d",
                  static_cast<double>(plot.fRT60), plot.iImagesTotal, plot.iImagesUsed);
    panel(svg, kTop + 2 * (kPanelHeight + kGap), caption,
          {plot.pfEchogram, plot.iEchogramLength, true}, iRate, time,
          levelAxis(plot.pfEchogram, plot.iEchogramLength));
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
