// quendarik hrtf: making and inspecting .qkhrtf sets.
//   hrtf import IN.sofa OUT.qkhrtf [--taps N] [--type 16s|32f] [--rate HZ]
//   hrtf info FILE.qkhrtf
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "binaural/CHELPER_HRTF.h"
#include "binaural/HrtfTools.h"
#include "binaural/SofaImport.h"
#include "commands.h"
#include "platform/Report.h"

namespace qkcli {

namespace {
void usage() {
    std::fprintf(stderr,
                 "usage: quendarik hrtf import IN.sofa OUT.qkhrtf [--taps N] [--type 16s|32f] "
                 "[--rate HZ]\n"
                 "       quendarik hrtf info FILE.qkhrtf\n");
}

// Texts of the library go to standard error as "caption: text".
int printReport(unsigned long, const char *text, const char *caption, int) {
    std::fprintf(stderr, "quendarik: %s: %s\n", caption, text);
    return qk::kAnswerNo;
}

// Reads a whole positive number; false for anything else.
bool parseCount(const char *text, int &value) {
    char *end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (end == text || *end != 0 || v < 1 || v > 10000000) {
        return false;
    }
    value = static_cast<int>(v);
    return true;
}

// Splits "--name value" options from the positional arguments.
bool parseOptions(int argc, char **argv, std::vector<std::string> &positional,
                  qk::SofaImportOptions &options) {
    for (int i = 0; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg.rfind("--", 0) != 0) {
            positional.push_back(arg);
            continue;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "quendarik: %s needs a value\n", arg.c_str());
            return false;
        }
        const char *value = argv[++i];
        bool ok = true;
        if (arg == "--taps") {
            ok = parseCount(value, options.iTaps);
        } else if (arg == "--rate") {
            ok = parseCount(value, options.iSampleRate);
        } else if (arg == "--type") {
            options.strDataType = value;
            ok = options.strDataType == "16s" || options.strDataType == "32f";
        } else {
            std::fprintf(stderr, "quendarik: unknown option %s\n", arg.c_str());
            return false;
        }
        if (!ok) {
            std::fprintf(stderr, "quendarik: bad value for %s: %s\n", arg.c_str(), value);
            return false;
        }
    }
    return true;
}

int runImport(int argc, char **argv) {
    std::vector<std::string> positional;
    qk::SofaImportOptions options;
    if (!parseOptions(argc, argv, positional, options) || positional.size() != 2) {
        usage();
        return 2;
    }
    CHELPER_HRTF set;
    std::string error;
    if (qk::ImportSofa(positional[0], options, set, error) != 0) {
        std::fprintf(stderr, "quendarik: can't import %s\n", error.c_str());
        return 1;
    }
    if (set.ReadWrite(1, positional[1]) != 0) {
        return 1;
    }
    std::printf("%s: %d measurements of %d taps at %d Hz, %s\n", positional[1].c_str(),
                set.m_iMeasurements, set.m_iFileTaps, set.m_iFileRate, set.m_szDataType);
    return 0;
}

int runInfo(int argc, char **argv) {
    if (argc != 1) {
        usage();
        return 2;
    }
    CHELPER_HRTF set;
    if (set.ReadWrite(0, argv[0]) != 0) {
        std::fprintf(stderr, "quendarik: can't read %s\n", argv[0]);
        return 1;
    }
    std::printf("%s", qk::DescribeSet(set).c_str());
    return 0;
}
}  // namespace

int RunHrtf(int argc, char **argv) {
    qk::SetReportHandler(&printReport, 0);
    if (argc < 1) {
        usage();
        return 2;
    }
    const std::string sub = argv[0];
    if (sub == "import") {
        return runImport(argc - 1, argv + 1);
    }
    if (sub == "info") {
        return runInfo(argc - 1, argv + 1);
    }
    usage();
    return 2;
}

}  // namespace qkcli
