// The image model in a shoe box, checked against the box's image lattice worked out here
// independently; the change mask and what it costs; the responses and their filters; the
// per-source manager and its shared mode.
#include "field/CSFM_ISM.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "dsp/ipps.h"
#include "field/CSFM_ISM_ORMS.h"
#include "field/CSFM_RT.h"
#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/ScopedSettingsDir.h"
#include "world/CDSC_World.h"
#include "world/CWorld_Utils.h"

namespace {
constexpr int kRate = 44100;
constexpr float kW = 6.0f;  // the box: x in [-3, 3], y in [-3, 3], z in [0, 4]
constexpr float kD = 6.0f;
constexpr float kH = 4.0f;

C3Point at(float x, float y, float z) {
    return C3Point(x, y, z, 0);
}

struct LatticeImage {
    float x, y, z;
    int order;
};

// Images of p in a box [lo, hi] on each axis: along one axis, image n sits at n L + p' with
// p' = p - lo for even n and hi - p for odd n, after |n| reflections.
std::vector<LatticeImage> lattice(C3Point p, int order) {
    const float lo[3] = {-kW / 2, -kD / 2, 0.0f};
    const float hi[3] = {kW / 2, kD / 2, kH};
    const float v[3] = {p.x, p.y, p.z};
    auto coordinate = [&](int axis, int n) {
        const float L = hi[axis] - lo[axis];
        const float q = (n % 2 == 0) ? v[axis] - lo[axis] : hi[axis] - v[axis];
        return lo[axis] + n * L + q;
    };
    std::vector<LatticeImage> images;
    for (int i = -order; i <= order; ++i) {
        for (int j = -order; j <= order; ++j) {
            for (int k = -order; k <= order; ++k) {
                const int o = std::abs(i) + std::abs(j) + std::abs(k);
                if (o <= order) {
                    images.push_back({coordinate(0, i), coordinate(1, j), coordinate(2, k), o});
                }
            }
        }
    }
    return images;
}

class ShoeBox : public testing::Test {
  protected:
    ShoeBox() : root("image-model") {
        qk::table::code4initLow(&code);
        world = std::make_unique<CDSC_World>();
        world->m_pCode4 = &code;
        CWorld_Utils::Generate_ShoeBox(world.get(), "6", "6", "4");
        model = std::make_unique<CSFM_ISM>(world.get());
        model->m_pCode4 = &code;
    }
    ~ShoeBox() override { qk::table::code4initUndo(&code); }

    // The echogram call, for the delays and gains it leaves in the model.
    int Echogram(C3Point source, C3Point listener, int order, float temperature = 25.0f,
                 int recalculate = 0) {
        float peak = 0.0f;
        const int result = model->GetMonauralImpulseResponse(
            ir, length, source, at(0, 10, 1.5f), listener, at(0, 10, 1.5f), order, temperature,
            kRate, peak, 0, recalculate, 32);
        return result;
    }
    void TearDown() override { ippsFree(ir); }

    qktest::ScopedCommonRoot root;
    qk::table::Code4 code;
    std::unique_ptr<CDSC_World> world;
    std::unique_ptr<CSFM_ISM> model;
    float *ir = nullptr;
    int length = 0;
};
}  // namespace

TEST_F(ShoeBox, ValidImagesAreTheLatticeWithItsDelaysAndGains) {
    ASSERT_EQ(world->m_Planes.size(), 6u);
    // Away from walls and edges: no path passes within 0.1 m of an edge, where the model
    // takes two points of reflection for one.
    const C3Point source = at(1.2f, 0.3f, 1.3f);
    const C3Point listener = at(-0.6f, -0.2f, 1.9f);
    const int generated[] = {1, 7, 37};
    const int valid[] = {1, 7, 25};
    for (int order = 0; order <= 2; ++order) {
        for (float temperature : {25.0f, -10.0f}) {
            SCOPED_TRACE(testing::Message() << "order " << order << ", " << temperature << " C");
            ASSERT_EQ(Echogram(source, listener, order, temperature, 1), 0);
            EXPECT_EQ(model->m_Images.size(), static_cast<size_t>(generated[order]));
            ASSERT_EQ(model->m_ValidImages.size(), static_cast<size_t>(valid[order]));

            const float c = 331.4f * std::sqrt(1.0f + temperature / 273.0f);
            std::vector<LatticeImage> expected = lattice(source, order);
            ASSERT_EQ(expected.size(), model->m_ValidImages.size());
            for (size_t i = 0; i < model->m_ValidImages.size(); ++i) {
                const CImageSource &image = model->m_Images[model->m_ValidImages[i].iImage];
                auto match = std::find_if(expected.begin(), expected.end(), [&](auto &e) {
                    return std::fabs(e.x - image.x) < 1e-3f && std::fabs(e.y - image.y) < 1e-3f &&
                           std::fabs(e.z - image.z) < 1e-3f;
                });
                ASSERT_NE(match, expected.end()) << "image " << i << " isn't on the lattice";
                EXPECT_EQ(match->order, image.iOrder);
                const float d =
                    std::hypot(match->x - listener.x, match->y - listener.y, match->z - listener.z);
                EXPECT_NEAR(model->m_pfDelays[i], d * 1000.0f / c, 1e-3f);
                EXPECT_NEAR(model->m_pfGains[i], d < 1.0f ? 1.0f : 1.0f / d, 1e-5f);
                expected.erase(match);  // each lattice point is met once
            }
            // The echogram holds the gains at the truncated delays.
            const float sum = std::accumulate(ir, ir + length, 0.0f);
            const float gains =
                std::accumulate(model->m_pfGains.begin(), model->m_pfGains.end(), 0.0f);
            EXPECT_NEAR(sum, gains, 1e-4f);
            const float fMax =
                *std::max_element(model->m_pfDelays.begin(), model->m_pfDelays.end());
            EXPECT_EQ(length, static_cast<int>(fMax / 1000.0f * kRate + (order + 1) * 32.0f));
        }
    }
}

TEST_F(ShoeBox, WhatTheChangeMaskCosts) {
    const C3Point source = at(1.0f, 1.0f, 1.0f);
    const C3Point listener = at(-1.0f, -0.5f, 1.5f);
    ASSERT_EQ(Echogram(source, listener, 2), 0);
    const size_t images = model->m_Images.size();
    // A mark on an image shows whether the list was made again.
    model->m_Images[5].x = 999.0f;

    // The head turns: no image work, but the directions are new.
    EXPECT_EQ(model->CheckForRecalculationType(source, at(0, 10, 1.5f), listener, at(10, 0, 1.5f),
                                               2, 25.0f, kRate, 0),
              CSFM_ISM::kListenerTurned);
    model->m_ValidImages.resize(3);  // a mark on the valid list too
    qktest::Responses out;
    ASSERT_EQ(model->GetBinauralImpulseResponse(nullptr, out.mono, out.monoLength, out.left,
                                                out.right, out.length, source, at(0, 10, 1.5f),
                                                listener, at(0, 10, 1.5f), "", 2, 25.0f, kRate,
                                                out.peakLeft, out.peakRight, 0, 0, 32, 1),
              0);
    EXPECT_EQ(model->m_Images[5].x, 999.0f);
    EXPECT_EQ(model->m_ValidImages.size(), 3u);
    EXPECT_EQ(model->m_pfAzimuths.size(), 3u);

    // The listener moves: the images stay, validation runs again.
    ASSERT_EQ(Echogram(source, at(-1.2f, -0.5f, 1.5f), 2), 0);
    EXPECT_EQ(model->m_Images[5].x, 999.0f);
    EXPECT_GT(model->m_ValidImages.size(), 3u);
    // The temperature: new delays, no image work.
    EXPECT_EQ(model->CheckForRecalculationType(source, at(0, 10, 1.5f), at(-1.2f, -0.5f, 1.5f),
                                               at(0, 10, 1.5f), 2, 30.0f, kRate, 0),
              CSFM_ISM::kTemperatureChanged);
    // The source moves: all is made again.
    ASSERT_EQ(Echogram(at(1.0f, 0.5f, 1.0f), listener, 2), 0);
    EXPECT_NE(model->m_Images[5].x, 999.0f);
    EXPECT_EQ(model->m_Images.size(), images);
}

TEST_F(ShoeBox, ReflectionFiltersCascadeAlongThePath) {
    ASSERT_EQ(Echogram(at(1, 1, 1), at(-1, -1, 2), 3, 25.0f, 1), 0);
    std::vector<float> filter;
    for (const CImageSource &image : model->m_Images) {
        model->GetReflectionFilter(static_cast<int>(&image - model->m_Images.data()), filter, kRate,
                                   32);
        const size_t expected = image.iOrder == 0 ? 0u : 31u * image.iOrder + 1u;
        ASSERT_EQ(filter.size(), expected);
        if (!filter.empty()) {
            // Each material's filter sums to 1, so a cascade does too.
            EXPECT_NEAR(std::accumulate(filter.begin(), filter.end(), 0.0f), 1.0f, 1e-4f);
        }
    }
}

// With a set whose every direction is a unit impulse, each image's contribution is its
// reflection filter, at its truncated delay, times its distance gain.
TEST_F(ShoeBox, TheBinauralResponseOfAUnitImpulseSet) {
    std::unique_ptr<CHELPER_HRTF> set = qktest::MakeSet(1, 64, "BOTH", kRate);
    std::fill(set->m_pfData.get(), set->m_pfData.get() + set->DataLength(), 0.0f);
    set->m_pfData[0] = 1.0f;
    set->m_pfData[64] = 1.0f;
    qktest::FillLookup(*set, 0);
    qktest::Responses out;
    const C3Point source = at(0.5f, 1.7f, 1.2f);
    const C3Point listener = at(-0.3f, -1.0f, 2.1f);
    ASSERT_EQ(model->GetBinauralImpulseResponse(set.get(), out.mono, out.monoLength, out.left,
                                                out.right, out.length, source, at(0, 10, 1.2f),
                                                listener, at(0, 10, 1.6f), "", 2, 25.0f, kRate,
                                                out.peakLeft, out.peakRight, 0, 1, 32, 7),
              0);
    const float gains = std::accumulate(model->m_pfGains.begin(), model->m_pfGains.end(), 0.0f);
    EXPECT_NEAR(std::accumulate(out.left, out.left + out.length, 0.0f), gains, 1e-4f);
    EXPECT_NEAR(std::accumulate(out.right, out.right + out.length, 0.0f), gains, 1e-4f);
    // The direct sound: alone on its sample, before any reflection.
    const int direct = static_cast<int>(model->m_pfDelays[0] / 1000.0f * kRate);
    EXPECT_FLOAT_EQ(out.left[direct], model->m_pfGains[0]);
    EXPECT_EQ(std::count_if(out.left, out.left + direct, [](float v) { return v != 0.0f; }), 0);
    EXPECT_FLOAT_EQ(out.peakLeft, *std::max_element(out.left, out.left + out.length));
    for (int i = 0; i < 6; ++i) {
        EXPECT_FLOAT_EQ(model->m_afEarlyDelays[i], model->m_pfDelays[i] / 1000.0f);
    }
    EXPECT_EQ(model->m_iImagesTotal, 37);
    EXPECT_EQ(model->m_iImagesValid, 25);
}

// The model's synthesis reads the set in place; it must give what the set's own reflection
// list gives, filters and all.
TEST(ReflectionSynthesis, EqualsTheSetsReflectionList) {
    std::unique_ptr<CHELPER_HRTF> set = qktest::MakeSet(4, 48, "BOTH", kRate);
    for (int az = 0; az < 360; ++az) {
        for (int el = -90; el <= 90; ++el) {
            set->m_aiLookup[CHELPER_HRTF::TableIndex(az, el)] = (az / 90) % 4;
        }
    }
    const float azimuths[] = {0, 95, 181, 300, 45};
    const float elevations[] = {0, 10, -20, 0, 90};
    const float delays[] = {1.0f, 3.3f, 7.9f, 2.2f, 12.5f};
    const float gains[] = {1.0f, 0.5f, 0.25f, -0.3f, 0.1f};
    std::vector<float> filters;
    const int lengths[] = {0, 32, 63, 0, 94};
    for (int L : lengths) {
        for (int k = 0; k < L; ++k) {
            filters.push_back(std::sin(0.37f * k + L) / L);
        }
    }
    float *a[2] = {nullptr, nullptr};
    float *b[2] = {nullptr, nullptr};
    int na = 0, nb = 0;
    set->GetHRTF(a[0], a[1], na, azimuths, elevations, delays, gains, filters.data(), lengths, 5, 0,
                 kRate);
    set->RenderReflections(b[0], b[1], nb, azimuths, elevations, delays, gains, filters.data(),
                           lengths, 5, kRate);
    ASSERT_EQ(na, nb);
    for (int ear = 0; ear < 2; ++ear) {
        for (int i = 0; i < na; ++i) {
            ASSERT_NEAR(a[ear][i], b[ear][i], 1e-6f) << "ear " << ear << " sample " << i;
        }
        ippsFree(a[ear]);
        ippsFree(b[ear]);
    }
}

TEST_F(ShoeBox, TheRoomsSabineTime) {
    const float rt60 = model->GetRT60();
    float absorption = 0.0f;
    for (CVRPlane *plane : world->m_Planes) {
        float average = 0.0f;
        CMATERIAL material;
        material.GetAverage(&code, plane->m_strMaterial, average, 32);
        absorption += plane->Area() * average;
    }
    ASSERT_GT(absorption, 0.0f);
    EXPECT_NEAR(rt60, 0.163f * 144.0f / absorption, 1e-4f);
    CSFM_ISM empty;
    EXPECT_EQ(empty.GetRT60(), 0.0f);
}

TEST_F(ShoeBox, AHighOrderStopsAtTheCapWithOneReport) {
    qktest::ReportRecorder reports;
    const C3Point source = at(0.3f, 0.2f, 1.1f);
    const C3Point listener = at(-0.5f, 0.4f, 1.4f);
    ASSERT_EQ(Echogram(source, listener, 9, 25.0f, 1), 0);
    EXPECT_EQ(model->m_Images.size(), CSFM_ISM::kMaxImages);
    EXPECT_EQ(Echogram(at(0.3f, 0.25f, 1.1f), listener, 9), 0);  // usable, and not told again
    EXPECT_EQ(reports.entries.size(), 1u);
    EXPECT_GT(model->m_ValidImages.size(), 25u);

    // An absurd order in a world without planes makes the direct sound at once, and no
    // response (its length would be the order's); an absurd temperature gives none either.
    world->ClearPlanes();
    ASSERT_EQ(Echogram(source, listener, 2147483647, 25.0f, 1), -1);
    EXPECT_EQ(model->m_Images.size(), 1u);
    EXPECT_EQ(Echogram(source, listener, 1, -273.0f, 1), -1);
}

TEST_F(ShoeBox, TheManagerKeepsAModelPerSourceAndSharesInSharedMode) {
    CSFM_ISM_ORMS manager(world.get());
    manager.m_pCode4 = &code;
    qktest::Responses out;
    const C3Point listener = at(-0.6f, -0.2f, 1.9f);
    auto call = [&](int id, C3Point source) {
        return manager.GetBinauralImpulseResponse(nullptr, out.mono, out.monoLength, out.left,
                                                  out.right, out.length, source, at(0, 10, 1.5f),
                                                  listener, at(0, 10, 1.5f), "", 2, 25.0f, kRate,
                                                  out.peakLeft, out.peakRight, 0, 0, 32, id);
    };
    ASSERT_EQ(call(1, at(1.2f, 0.3f, 1.3f)), 0);
    ASSERT_EQ(call(2, at(0.5f, 1.7f, 1.2f)), 0);
    ASSERT_EQ(manager.ModelCount(), 2u);
    EXPECT_EQ(manager.m_iLastLength, out.monoLength);
    EXPECT_EQ(manager.m_iImagesValid, 25);
    EXPECT_NE(manager.Model(1)->m_pImages, manager.Model(2)->m_pImages);

    // Shared mode: the first model's images are the listener's, and the second validates
    // them with the real source in the listener's place.
    manager.m_iORMS = 1;
    ASSERT_EQ(call(1, at(1.2f, 0.3f, 1.3f)), 0);
    ASSERT_EQ(call(2, at(0.5f, 1.7f, 1.2f)), 0);
    const CSFM_ISM *first = manager.Model(1);
    const CSFM_ISM *second = manager.Model(2);
    EXPECT_EQ(second->m_pImages, &first->m_Images);
    EXPECT_FLOAT_EQ(first->m_Images[0].x, listener.x);
    EXPECT_EQ(second->m_iImagesValid, 25);
    // The same room either way round: the echogram doesn't depend on the mode.
    std::vector<float> shared(out.mono, out.mono + out.monoLength);
    manager.m_iORMS = 0;
    ASSERT_EQ(call(2, at(0.5f, 1.7f, 1.2f)), 0);
    ASSERT_EQ(shared.size(), static_cast<size_t>(out.monoLength));
    for (int i = 0; i < out.monoLength; ++i) {
        ASSERT_NEAR(shared[static_cast<size_t>(i)], out.mono[i], 1e-5f) << i;
    }

    // A source removed during play: its model goes, and one that borrowed its images makes its
    // own again.
    manager.m_iORMS = 1;
    ASSERT_EQ(call(2, at(0.5f, 1.7f, 1.2f)), 0);
    manager.RemoveModel(1);
    EXPECT_EQ(manager.ModelCount(), 1u);
    EXPECT_EQ(manager.Model(1), nullptr);
    EXPECT_EQ(manager.Model(2)->m_pImages, nullptr);
    ASSERT_EQ(call(2, at(0.5f, 1.7f, 1.2f)), 0);
    EXPECT_EQ(manager.Model(2)->m_iImagesValid, 25);
}

// With "INFO" the time of each generation reaches the host at the info level.
TEST_F(ShoeBox, TheTimingReportReachesTheHost) {
    qktest::ReportRecorder reports;
    qktest::Responses out;
    auto call = [&] {
        return model->GetBinauralImpulseResponse(
            nullptr, out.mono, out.monoLength, out.left, out.right, out.length, at(1, 0.5f, 1),
            at(0, 10, 1), at(-1, 0, 1.5f), at(0, 10, 1.5f), "", 1, 25.0f, kRate, out.peakLeft,
            out.peakRight, 0, 1, 32, 7);
    };
    ASSERT_EQ(call(), 0);
    EXPECT_TRUE(reports.entries.empty());
    model->m_bReport = 1;
    ASSERT_EQ(call(), 0);
    ASSERT_EQ(reports.entries.size(), 1u);
    EXPECT_EQ(reports.entries[0].text.rfind("Source:  7, Time (ms): ", 0), 0u);
    EXPECT_EQ(reports.entries[0].severity, static_cast<int>(qk::Severity::Info));
}

// The ray-tracing place holder: no world, no rays; no responses at all.
TEST_F(ShoeBox, TheRayTracingModelIsASkeleton) {
    CSFM_RT none;
    none.m_Source.x = 5.0f;
    EXPECT_EQ(none.CalculateRays(at(1, 1, 1), at(0, 0, 1)), -1);
    EXPECT_EQ(none.m_Source.x, 5.0f);
    CSFM_RT rays(world.get());
    EXPECT_EQ(rays.CalculateRays(at(1, 1, 1), at(0, 0, 1)), 0);
    qktest::Responses out;
    EXPECT_EQ(rays.GetBinauralImpulseResponse(nullptr, out.mono, out.monoLength, out.left,
                                              out.right, out.length, at(1, 1, 1), at(0, 10, 1),
                                              at(0, 0, 1), at(0, 10, 1), "", 1, 25.0f, kRate,
                                              out.peakLeft, out.peakRight, 0, 1, 32, 1),
              -1);
    EXPECT_EQ(out.mono, nullptr);
}

// A plane whose material the table hasn't got has no filter: a path through it is filtered by
// its other planes, wherever on the path the plane lies, and only a path through nothing but
// that plane has no filter at all (silence).
TEST_F(ShoeBox, APlaneWithoutAFilterIsSkippedOnThePath) {
    world->m_Planes[0]->m_strMaterial = "no such material";
    ASSERT_EQ(Echogram(at(1, 1, 1), at(-1, -1, 2), 3, 25.0f, 1), 0);
    ASSERT_EQ(world->m_Planes[0]->m_Material.m_pFilter.get(), nullptr);
    std::vector<float> filter;
    int throughOthers = 0, silentThroughOthers = 0;
    for (const CImageSource &image : model->m_Images) {
        if (image.iOrder == 0) {
            continue;
        }
        bool other = false;
        for (int i = static_cast<int>(&image - model->m_Images.data()); i >= 0;
             i = model->m_Images[static_cast<size_t>(i)].iParent) {
            const int plane = model->m_Images[static_cast<size_t>(i)].iPlane;
            other = other || plane > 0;
        }
        model->GetReflectionFilter(static_cast<int>(&image - model->m_Images.data()), filter, kRate,
                                   32);
        const float sum = std::accumulate(filter.begin(), filter.end(), 0.0f);
        if (other) {
            ++throughOthers;
            silentThroughOthers += std::fabs(sum - 1.0f) > 1e-4f ? 1 : 0;
        } else {
            EXPECT_EQ(sum, 0.0f);
        }
    }
    EXPECT_GT(throughOthers, 50);
    EXPECT_EQ(silentThroughOthers, 0);
}
