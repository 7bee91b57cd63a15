// SOFA files the test writes itself (netCDF-4, which is HDF5) with broadband delays and in
// the GeneralFIR convention: the import moves each response by its delay, so that the set's
// interaural delay is the file's.
#include <gtest/gtest.h>
#include <netcdf.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "binaural/SofaImport.h"
#include "support/WaveWriter.h"

namespace {
constexpr int kTaps = 32;
constexpr double kEar = 0.09;  // metres from the centre of the head

// Four directions on the horizon, 0, 90, 180 and 270 degrees: each ear's response is a short
// pulse at sample 4, and the delays say when it arrives.
struct SofaSet {
    std::string strConventions = "SimpleFreeFieldHRIR";
    std::string strRoom = "free field";
    std::vector<double> delays;  // (M, R) with 8 values, (I, R) with 2, none when empty
};

bool ok(int status) {
    EXPECT_EQ(status, NC_NOERR) << nc_strerror(status);
    return status == NC_NOERR;
}

void text(int nc, int var, const char *name, const std::string &value) {
    ok(nc_put_att_text(nc, var, name, value.size(), value.c_str()));
}

int variable(int nc, const char *name, std::initializer_list<int> dims, const char *type) {
    int var = 0;
    const std::vector<int> d(dims);
    ok(nc_def_var(nc, name, NC_DOUBLE, static_cast<int>(d.size()), d.data(), &var));
    if (type != nullptr) {
        text(nc, var, "Type", type);
        text(nc, var, "Units",
             std::strcmp(type, "spherical") == 0 ? "degree, degree, metre" : "metre");
    }
    return var;
}

void writeSofa(const std::string &strPath, const SofaSet &set) {
    const int M = 4;
    int nc = 0;
    ASSERT_TRUE(ok(nc_create(strPath.c_str(), NC_NETCDF4 | NC_CLOBBER, &nc)));
    const std::pair<const char *, std::string> globals[] = {
        {"Conventions", "SOFA"},
        {"Version", "1.0"},
        {"SOFAConventions", set.strConventions},
        {"SOFAConventionsVersion", "1.0"},
        {"DataType", "FIR"},
        {"RoomType", set.strRoom},
        {"APIName", "quendarik tests"},
        {"APIVersion", "1.0"},
        {"Title", "delays"},
        {"DatabaseName", "tests"},
        {"ListenerShortName", "pulse"},
        {"AuthorContact", ""},
        {"Organization", ""},
        {"License", "none"},
        {"DateCreated", "2026-01-01 00:00:00"},
        {"DateModified", "2026-01-01 00:00:00"},
    };
    for (const auto &g : globals) {
        text(nc, NC_GLOBAL, g.first, g.second);
    }
    int I, C, R, E, N, Md;
    ok(nc_def_dim(nc, "I", 1, &I));
    ok(nc_def_dim(nc, "C", 3, &C));
    ok(nc_def_dim(nc, "R", 2, &R));
    ok(nc_def_dim(nc, "E", 1, &E));
    ok(nc_def_dim(nc, "N", kTaps, &N));
    ok(nc_def_dim(nc, "M", M, &Md));
    const int listener = variable(nc, "ListenerPosition", {I, C}, "cartesian");
    const int up = variable(nc, "ListenerUp", {I, C}, "cartesian");
    const int view = variable(nc, "ListenerView", {I, C}, "cartesian");
    const int receivers = variable(nc, "ReceiverPosition", {R, C, I}, "cartesian");
    const int sources = variable(nc, "SourcePosition", {Md, C}, "spherical");
    const int emitter = variable(nc, "EmitterPosition", {E, C, I}, "cartesian");
    const int ir = variable(nc, "Data.IR", {Md, R, N}, nullptr);
    const int rate = variable(nc, "Data.SamplingRate", {I}, nullptr);
    text(nc, rate, "Units", "hertz");
    int delay = -1;
    if (set.delays.size() == 8) {
        delay = variable(nc, "Data.Delay", {Md, R}, nullptr);
    } else if (set.delays.size() == 2) {
        delay = variable(nc, "Data.Delay", {I, R}, nullptr);
    }
    ok(nc_enddef(nc));
    const double zero[3] = {0, 0, 0}, ahead[3] = {1, 0, 0}, top[3] = {0, 0, 1};
    const double ears[6] = {0, kEar, 0, 0, -kEar, 0};
    const double directions[12] = {0, 0, 1.2, 90, 0, 1.2, 180, 0, 1.2, 270, 0, 1.2};
    std::vector<double> responses(static_cast<size_t>(M) * 2 * kTaps, 0.0);
    for (size_t r = 0; r < 2 * static_cast<size_t>(M); ++r) {
        responses[r * kTaps + 4] = 0.5;
        responses[r * kTaps + 5] = 0.25;
    }
    const double fs = 44100.0;
    ok(nc_put_var_double(nc, listener, zero));
    ok(nc_put_var_double(nc, up, top));
    ok(nc_put_var_double(nc, view, ahead));
    ok(nc_put_var_double(nc, receivers, ears));
    ok(nc_put_var_double(nc, sources, directions));
    ok(nc_put_var_double(nc, emitter, zero));
    ok(nc_put_var_double(nc, ir, responses.data()));
    ok(nc_put_var_double(nc, rate, &fs));
    if (delay >= 0) {
        ok(nc_put_var_double(nc, delay, set.delays.data()));
    }
    ok(nc_close(nc));
}

// The centre of a response: the first moment of its samples, in samples.
double centre(const float *p, int n) {
    double sum = 0.0, moment = 0.0;
    for (int i = 0; i < n; ++i) {
        sum += p[i];
        moment += static_cast<double>(i) * p[i];
    }
    return moment / sum;
}

// Right ear's centre less the left ear's, in samples, for a direction.
double interauralDelay(CHELPER_HRTF &set, float fAzimuth) {
    float *l = nullptr;
    float *r = nullptr;
    int n = 0;
    EXPECT_EQ(set.GetHRTF(l, r, n, fAzimuth, 0.0f, 44100), 1);
    const double d = centre(r, n) - centre(l, n);
    ippsFree(l);
    ippsFree(r);
    return d;
}

class SofaDelays : public testing::Test {
  protected:
    ~SofaDelays() override { std::filesystem::remove(path); }
    const std::string path = qktest::ScratchPath("delays.sofa");
    CHELPER_HRTF set;
    std::string error;
};
}  // namespace

// Delays for each measurement, with fractions: the set's interaural delay is the file's to a
// thousandth of a sample, and the sound from the left reaches the left ear first.
TEST_F(SofaDelays, EachMeasurementsDelaysMoveItsResponses) {
    SofaSet file;
    file.delays = {3, 3, 2, 22.25, 3, 3, 17.5, 1};  // 0, 90 (left), 180, 270 (right)
    writeSofa(path, file);
    ASSERT_EQ(qk::ImportSofa(path, {}, set, error), 0) << error;
    EXPECT_EQ(set.m_iMeasurements, 4);
    EXPECT_GE(set.m_iFileTaps, kTaps + 22);
    EXPECT_NEAR(interauralDelay(set, 0.0f), 0.0, 1e-3);
    EXPECT_NEAR(interauralDelay(set, 90.0f), 20.25, 1e-3);
    EXPECT_NEAR(interauralDelay(set, 270.0f), -16.5, 1e-3);
}

// GeneralFIR with two receivers imports as SimpleFreeFieldHRIR does, whatever its room; one
// pair of whole delays for all measurements moves them all alike.
TEST_F(SofaDelays, GeneralFirSetsWithOnePairOfDelays) {
    SofaSet file;
    file.strConventions = "GeneralFIR";
    file.strRoom = "reverberant room";
    file.delays = {0, 7};
    writeSofa(path, file);
    ASSERT_EQ(qk::ImportSofa(path, {}, set, error), 0) << error;
    for (float az : {0.0f, 90.0f, 180.0f, 270.0f}) {
        EXPECT_NEAR(interauralDelay(set, az), 7.0, 1e-4) << az;
    }
}

// An HDF5 file that libmysofa can't read is told apart from a file that isn't HDF5 at all.
TEST_F(SofaDelays, AnUnreadableHdf5FileIsNamedAsSuch) {
    writeSofa(path, SofaSet());
    const auto size = std::filesystem::file_size(path);
    std::filesystem::resize_file(path, size / 3);
    EXPECT_EQ(qk::ImportSofa(path, {}, set, error), -1);
    EXPECT_NE(error.find("can't be read as SOFA"), std::string::npos) << error;
    EXPECT_EQ(error.find("not an HDF5"), std::string::npos) << error;
    EXPECT_EQ(set.m_iMeasurements, 0);
}
