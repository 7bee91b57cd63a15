// quendarik hrtf dfe, run as a user runs it on the MIT KEMAR set: its default keeps the
// interaural cues of the measurements.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "binaural/CHELPER_HRTF.h"
#include "support/CliRun.h"
#include "support/HrtfSets.h"
#include "support/WaveWriter.h"

#ifdef QK_TEST_CLI
namespace {
const char *const kKemar = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa";

constexpr double kPi = 3.14159265358979323846;
constexpr int kBins = 1024;  // the transform length: the 512 taps padded

// Left over right ear energy at azimuth 90 (to the left), elevation 0, in dB, in each of the
// octaves around 500 Hz to 8 kHz. A diffuse-field equalisation filters both ears alike, so
// these stay as measured unless the responses are cut.
std::vector<double> octaveLevelDifferences(const std::string &path) {
    CHELPER_HRTF set;
    if (set.ReadWrite(0, path) != 0) {
        return {};
    }
    qktest::Responses r;
    set.GetHRTF(r.left, r.right, r.length, 90.0f, 0.0f, set.m_iFileRate);
    std::vector<double> differences;
    for (double centre = 500.0; centre <= 8000.0; centre *= 2.0) {
        double left = 0.0;
        double right = 0.0;
        for (int k = 0; k <= kBins / 2; ++k) {
            const double hz = static_cast<double>(k) * set.m_iFileRate / kBins;
            if (hz < centre / std::sqrt(2.0) || hz >= centre * std::sqrt(2.0)) {
                continue;
            }
            double lr = 0.0, li = 0.0, rr = 0.0, ri = 0.0;
            for (int n = 0; n < r.length; ++n) {
                const double phase = 2.0 * kPi * k * n / kBins;
                lr += r.left[n] * std::cos(phase);
                li -= r.left[n] * std::sin(phase);
                rr += r.right[n] * std::cos(phase);
                ri -= r.right[n] * std::sin(phase);
            }
            left += lr * lr + li * li;
            right += rr * rr + ri * ri;
        }
        differences.push_back(10.0 * std::log10(left / right));
    }
    return differences;
}
}  // namespace

TEST(HrtfDfe, TheDefaultConversionKeepsTheLevelDifferenceBetweenTheEars) {
    if (!std::filesystem::exists(kKemar)) {
        GTEST_SKIP() << kKemar << " is missing";
    }
    const std::string imported = qktest::ScratchPath("dfe_kemar.qkhrtf");
    const std::string equalised = qktest::ScratchPath("dfe_kemar_eq.qkhrtf");
    ASSERT_EQ(
        qktest::RunCli(std::string("hrtf import ") + kKemar + " " + imported + " --type 32f").code,
        0);
    const qktest::CliResult dfe = qktest::RunCli("hrtf dfe " + imported + " " + equalised);
    ASSERT_EQ(dfe.code, 0) << dfe.err;
    const std::vector<double> measured = octaveLevelDifferences(imported);
    const std::vector<double> kept = octaveLevelDifferences(equalised);
    ASSERT_EQ(measured.size(), 5u);
    ASSERT_EQ(kept.size(), 5u);
    EXPECT_GT(measured.back(), 15.0);  // the head's shadow at 8 kHz
    for (size_t b = 0; b < measured.size(); ++b) {
        EXPECT_NEAR(kept[b], measured[b], 2.0) << "octave " << (500 << b) << " Hz";
    }
    std::filesystem::remove(imported);
    std::filesystem::remove(equalised);

    const qktest::CliResult help = qktest::RunCli("hrtf --help");
    EXPECT_EQ(help.code, 0);
    for (const char *method : {"  1  regularised", "  2  a least-mean-squares", "  3  magnitude"}) {
        EXPECT_NE(help.out.find(method), std::string::npos) << help.out;
    }
}
#endif
