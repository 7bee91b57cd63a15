#include "jobsize.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace qkcli {

double WaveFileBytes(double dSeconds, int iRate, int iChannels, int iBits) {
    const double frames = std::floor(dSeconds * iRate);
    return kWaveHeaderBytes + frames * iChannels * (iBits / 8);
}

double FreeBytes(const std::string &strPath) {
    namespace fs = std::filesystem;
    std::error_code ec;
    fs::path at = fs::absolute(strPath.empty() ? fs::path(".") : fs::path(strPath), ec);
    if (ec) {
        return -1.0;
    }
    // The file itself doesn't exist yet, nor perhaps its folder: the nearest existing parent
    // is on the file system that will hold it.
    while (!fs::is_directory(at, ec)) {
        if (!at.has_parent_path() || at.parent_path() == at) {
            return -1.0;
        }
        at = at.parent_path();
    }
    const fs::space_info space = fs::space(at, ec);
    if (ec || space.available == static_cast<std::uintmax_t>(-1)) {
        return -1.0;
    }
    return static_cast<double>(space.available);
}

std::string FormatBytes(double dBytes) {
    static const char *const kUnits[] = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};
    int unit = 0;
    double value = dBytes;
    while (std::fabs(value) >= 1000.0 && unit < 6) {
        value /= 1000.0;
        ++unit;
    }
    char text[64];
    if (!std::isfinite(value)) {
        std::snprintf(text, sizeof text, "endless bytes");
    } else if (unit == 0) {
        std::snprintf(text, sizeof text, "%.0f B", value);
    } else {
        std::snprintf(text, sizeof text, "%.3g %s", value, kUnits[unit]);
    }
    return text;
}

bool JobFits(const JobSize &job, bool bForce, std::string &strMessage) {
    const std::string what = job.strWhat.empty() ? std::string() : " (" + job.strWhat + ")";
    if (job.bOneWave && !(job.dBytes <= kWaveFileMaxBytes)) {
        strMessage = job.strPath + " would take " + FormatBytes(job.dBytes) + what +
                     ", but a WAV file holds at most " + FormatBytes(kWaveFileMaxBytes);
        return false;
    }
    if (bForce) {
        return true;
    }
    const double free = FreeBytes(job.strPath);
    if (free >= 0.0 && !(job.dBytes <= free)) {
        strMessage = job.strPath + " would take " + FormatBytes(job.dBytes) + what +
                     ", but its file system has " + FormatBytes(free) +
                     " free; --force writes anyway";
        return false;
    }
    return true;
}

bool CheckJob(const char *pcCommand, const JobSize &job, bool bForce) {
    std::string message;
    if (JobFits(job, bForce, message)) {
        return true;
    }
    std::fprintf(stderr, "quendarik %s: %s\n", pcCommand, message.c_str());
    return false;
}

}  // namespace qkcli
