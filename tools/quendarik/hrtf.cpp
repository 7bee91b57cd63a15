// quendarik hrtf: making and inspecting .qkhrtf sets.
//   hrtf import IN.sofa OUT.qkhrtf [--taps N] [--type 16s|32f] [--rate HZ]
//   hrtf dfe IN.qkhrtf OUT.qkhrtf [--taps N] [--type 16s|32f] [--method 1|2|3]
//            [--offset SAMPLES]   (method 1 unless told: see help())
//   hrtf info FILE.qkhrtf
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "binaural/CHELPER_HRTF.h"
#include "binaural/CHRTF_Converter.h"
#include "binaural/HrtfTools.h"
#include "binaural/SofaImport.h"
#include "commands.h"
#include "platform/Report.h"

namespace qkcli {

namespace {
void usage(FILE *to = stderr) {
    std::fprintf(to,
                 "usage: quendarik hrtf import IN.sofa OUT.qkhrtf [--taps N] [--type 16s|32f] "
                 "[--rate HZ]\n"
                 "       quendarik hrtf dfe IN.qkhrtf OUT.qkhrtf [--taps N] [--type 16s|32f]\n"
                 "                [--method 1|2|3] [--offset SAMPLES]\n"
                 "       quendarik hrtf info FILE.qkhrtf\n");
}

// quendarik hrtf --help: the usage, and what each equalisation method does.
void help() {
    usage(stdout);
    std::printf(
        "\n"
        "dfe divides every response by the average magnitude over all directions (diffuse-\n"
        "field equalisation) at the set's full length, then keeps the responses from\n"
        "--offset on (default 256). The methods make the inverse of that average:\n"
        "  1  regularised inversion within a dynamic range of 24 dB, centred at half the\n"
        "     length, so the offset removes its delay. Every direction keeps its onset, its\n"
        "     level and the level and time differences between the ears. The program's\n"
        "     default, and what the default sets are made with.\n"
        "  2  a least-mean-squares inverse of 2048 taps, adapted on noise. It keeps the\n"
        "     interaural cues as well (within 1 dB in each octave in the MIT KEMAR set).\n"
        "  3  magnitude inversion limited at 0.2, the library converter's own default. Its\n"
        "     filter is delayed by about a quarter of the length, so the offset cuts the\n"
        "     onset of every response: in the MIT KEMAR set the level difference between\n"
        "     the ears at 90 degrees falls from 11.8 dB to 1.5 dB (from 19 dB to 4 dB in\n"
        "     the 8 kHz octave). Use it with a smaller --offset, if at all.\n");
}

// Texts of the library go to standard error as "caption: text".
int printReport(unsigned long, const char *text, const char *caption, int) {
    std::fprintf(stderr, "quendarik: %s: %s\n", caption, text);
    return qk::kAnswerNo;
}

// Reads a whole number from iMinimum up; false for anything else.
bool parseCount(const char *text, int &value, int iMinimum = 1) {
    char *end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (end == text || *end != 0 || v < iMinimum || v > 10000000) {
        return false;
    }
    value = static_cast<int>(v);
    return true;
}

// What the dfe subcommand passes to the converter (0: the converter's own default).
struct ConverterOptions {
    int iMethod = 0;
    int iOffset = -1;
};

// Splits "--name value" options from the positional arguments.
bool parseOptions(int argc, char **argv, std::vector<std::string> &positional,
                  qk::SofaImportOptions &options, ConverterOptions *pConverter = nullptr) {
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
        } else if (arg == "--method" && pConverter != nullptr) {
            ok = parseCount(value, pConverter->iMethod) && pConverter->iMethod <= 3;
        } else if (arg == "--offset" && pConverter != nullptr) {
            ok = parseCount(value, pConverter->iOffset, 0);
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

// Diffuse-field equalises a set at its full length with the library's converter, then
// shortens it (with a fade over the last eighth) and changes its sample type as asked. The
// converter's keep-from offset assumes long responses, so shortening comes after.
int runDfe(int argc, char **argv) {
    std::vector<std::string> positional;
    qk::SofaImportOptions options;
    options.strDataType.clear();
    ConverterOptions converterOptions;
    // The converter's own default (3) cuts the onset of every response at the default
    // offset, and with it the interaural cues: the program takes 1 unless told.
    converterOptions.iMethod = 1;
    if (!parseOptions(argc, argv, positional, options, &converterOptions) ||
        positional.size() != 2 || options.iSampleRate != 0) {
        usage();
        return 2;
    }
    CHRTF_Converter converter;
    if (converterOptions.iMethod != 0) {
        converter.m_iInverseMethod = converterOptions.iMethod;
    }
    if (converterOptions.iOffset >= 0) {
        converter.m_iOffset = converterOptions.iOffset;
    }
    if (converter.ConvertDFE(positional[0]) != 0) {
        std::fprintf(stderr, "quendarik: can't equalise %s\n", positional[0].c_str());
        return 1;
    }
    CHELPER_HRTF set;
    const int iRead = set.ReadWrite(0, converter.m_sOutputName);
    if (converter.m_sOutputName != positional[1]) {
        std::remove(converter.m_sOutputName.c_str());
    }
    if (iRead != 0) {
        return 1;
    }
    if (options.iTaps != 0 && qk::ResizeResponses(set, options.iTaps, options.iTaps / 8) != 0) {
        std::fprintf(stderr, "quendarik: bad number of taps\n");
        return 1;
    }
    if (!options.strDataType.empty()) {
        std::strncpy(set.m_szDataType, options.strDataType.c_str(),
                     CHELPER_HRTF::kDataTypeSize - 1);
    }
    if (set.ReadWrite(1, positional[1]) != 0) {
        return 1;
    }
    std::printf("%s: diffuse-field equalised, %d taps, %s\n", positional[1].c_str(),
                set.m_iFileTaps, set.m_szDataType);
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
    if (sub == "--help" || sub == "-h" ||
        (argc > 1 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0))) {
        help();
        return 0;
    }
    if (sub == "import") {
        return runImport(argc - 1, argv + 1);
    }
    if (sub == "dfe") {
        return runDfe(argc - 1, argv + 1);
    }
    if (sub == "info") {
        return runInfo(argc - 1, argv + 1);
    }
    usage();
    return 2;
}

}  // namespace qkcli
