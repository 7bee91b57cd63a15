// quendarik world and quendarik materials: checking a room before rendering in it.
//   world info FILE.txt|FILE.qkworld | --room W D H | --trapezium WF WB D H
//   world save FILE.txt|FILE.qkworld | --room W D H | --trapezium WF WB D H  OUT.qkworld
//   materials
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "platform/Archive.h"
#include "platform/Paths.h"
#include "platform/Report.h"
#include "world/CDSC_World.h"
#include "world/CWorld_Utils.h"
#include "world/FileBytes.h"
#include "world/MaterialTables.h"

namespace qkcli {

namespace {
// The filter length the engine designs materials with by default.
constexpr int kMaterialTaps = 32;
// Sabine's constant for metres and seconds.
constexpr double kSabine = 0.163;

void usage() {
    std::fprintf(stderr,
                 "usage: quendarik world info FILE.txt|FILE.qkworld\n"
                 "       quendarik world info --room W D H\n"
                 "       quendarik world info --trapezium WF WB D H\n"
                 "       quendarik world save FILE.txt|FILE.qkworld|--room ...|--trapezium ... "
                 "OUT.qkworld\n"
                 "       quendarik materials\n");
}

int printReport(unsigned long, const char *text, const char *caption, int) {
    std::fprintf(stderr, "quendarik: %s: %s\n", caption, text);
    return qk::kAnswerNo;
}

bool parseLength(const char *text, std::string &out) {
    char *end = nullptr;
    const double v = std::strtod(text, &end);
    if (end == text || *end != 0 || !(v > 0.0) || v > 100000.0) {
        return false;
    }
    out = text;
    return true;
}

bool endsWithArchive(const std::string &path) {
    return path.size() >= 8 && qk::ToUpper(path.substr(path.size() - 8)) == ".QKWORLD";
}

// Area of a plane polygon in space (Newell's normal), square metres.
double area(const CVRPlane &plane) {
    double nx = 0.0, ny = 0.0, nz = 0.0;
    const int n = plane.GetSize();
    for (int i = 0; i < n; ++i) {
        const C3Point &a = plane.Point(i);
        const C3Point &b = plane.Point((i + 1) % n);
        nx += (static_cast<double>(a.y) - b.y) * (static_cast<double>(a.z) + b.z);
        ny += (static_cast<double>(a.z) - b.z) * (static_cast<double>(a.x) + b.x);
        nz += (static_cast<double>(a.x) - b.x) * (static_cast<double>(a.y) + b.y);
    }
    return 0.5 * std::sqrt(nx * nx + ny * ny + nz * nz);
}

int info(CDSC_World &world, qk::table::Code4 &code, const std::string &what) {
    const int result = world.Generate();
    std::printf("world: %s\n", what.c_str());
    int index = 0;
    for (const auto &scene : world.m_Scenes) {
        std::printf("scene %d: %s%s, %zu corners, %zu planes\n", ++index, scene->m_strName.c_str(),
                    scene->m_iMain == 1 ? " (main)" : "", scene->m_Points.size(),
                    scene->m_Planes.size());
    }
    if (result != 0) {
        std::printf("generation failed: %d (the room has no planes)\n", result);
        return 1;
    }
    std::printf("%-5s %-14s %-28s %10s %8s %10s\n", "plane", "name", "material", "area m2",
                "corners", "mean abs.");
    double absorption = 0.0;
    for (const CVRPlane *plane : world.m_Planes) {
        CMATERIAL material;
        float average = 0.0f;
        material.GetAverage(&code, plane->m_strMaterial, average, kMaterialTaps);
        const double s = area(*plane);
        absorption += s * average;
        std::printf("%-5d %-14s %-28s %10.2f %8d %10.4f\n", plane->m_iID, plane->m_strName.c_str(),
                    plane->m_strMaterial.c_str(), s, plane->GetSize(),
                    static_cast<double>(average));
    }
    std::printf("volume: %.2f m3\n", static_cast<double>(world.m_fVolume));
    if (absorption > 0.0) {
        std::printf("RT60 (Sabine): %.3f s\n",
                    kSabine * static_cast<double>(world.m_fVolume) / absorption);
    } else {
        std::printf("RT60 (Sabine): none (nothing absorbs)\n");
    }
    return 0;
}

int save(CDSC_World &world, const std::string &out) {
    world.Generate();
    qk::CMemoryStream bytes;
    qk::CArchive ar(bytes, qk::CArchive::store);
    world.Serialize(ar);
    if (!qk::files::ReplaceFile(out, bytes.Bytes())) {
        std::fprintf(stderr, "quendarik: cannot write %s\n", out.c_str());
        return 1;
    }
    std::printf("%s: %zu scenes, %zu planes\n", out.c_str(), world.m_Scenes.size(),
                world.m_Planes.size());
    return 0;
}
}  // namespace

// Fills the world from the arguments; false (after a message) when they name no world.
bool LoadWorld(int argc, char **argv, CDSC_World &world, std::string &what) {
    if (argc >= 1 && std::string(argv[0]) == "--room") {
        std::string w, d, h;
        if (argc != 4 || !parseLength(argv[1], w) || !parseLength(argv[2], d) ||
            !parseLength(argv[3], h)) {
            return false;
        }
        CWorld_Utils::Generate_ShoeBox(&world, w, d, h);
        what = "shoe box " + w + " x " + d + " x " + h + " m";
        return true;
    }
    if (argc >= 1 && std::string(argv[0]) == "--trapezium") {
        std::string wf, wb, d, h;
        if (argc != 5 || !parseLength(argv[1], wf) || !parseLength(argv[2], wb) ||
            !parseLength(argv[3], d) || !parseLength(argv[4], h)) {
            return false;
        }
        CWorld_Utils::Generate_Trapezium(&world, wf, wb, d, h);
        what = "trapezium " + wf + ", " + wb + ", " + d + ", " + h + " m";
        return true;
    }
    if (argc != 1) {
        return false;
    }
    std::error_code ec;
    const std::string path = std::filesystem::absolute(argv[0], ec).string();
    what = path;
    if (!qk::files::Exists(path)) {
        std::fprintf(stderr, "quendarik: no such file: %s\n", argv[0]);
        return false;
    }
    if (endsWithArchive(path)) {
        qk::CFileStream file;
        if (!file.Open(path, false)) {
            return false;
        }
        qk::CArchive ar(file, qk::CArchive::load);
        world.Serialize(ar);
        return true;
    }
    CDSC_Scene::Import(&world, path, "main gd", 1);
    return true;
}

int RunWorld(int argc, char **argv) {
    qk::SetReportHandler(&printReport, 0);
    if (argc < 1) {
        usage();
        return 2;
    }
    const std::string command = argv[0];
    qk::table::Code4 code;
    qk::table::code4initLow(&code);
    CDSC_World world;
    world.m_pCode4 = &code;
    std::string what;
    if (command == "info" && LoadWorld(argc - 1, argv + 1, world, what)) {
        return info(world, code, what);
    }
    if (command == "save" && argc >= 3 && LoadWorld(argc - 2, argv + 1, world, what)) {
        return save(world, argv[argc - 1]);
    }
    usage();
    return 2;
}

int RunMaterials(int argc, char **) {
    qk::SetReportHandler(&printReport, 0);
    if (argc != 0) {
        usage();
        return 2;
    }
    using namespace qk::table;
    Code4 code;
    code4initLow(&code);
    MaterialTables::EnsureDefaults(code);
    Data4 *d4 = d4open(&code, MaterialTables::MaterialsPath());
    if (d4 == nullptr) {
        std::fprintf(stderr, "quendarik: cannot open %s.dbf (error %d)\n",
                     MaterialTables::MaterialsPath().c_str(), code.errorCode);
        return 1;
    }
    auto text = [d4](const char *field) {
        std::string s = f4ptr(d4field(d4, field));
        s.erase(0, std::min(s.size(), s.find_first_not_of(' ')));
        s.erase(s.find_last_not_of(' ') + 1);
        return s;
    };
    std::printf("%s.dbf\n", MaterialTables::MaterialsPath().c_str());
    std::printf("%5s  %-30s %-18s %5s %5s %5s %5s %5s %5s %5s %5s\n", "id", "material", "category",
                "125", "250", "500", "1k", "2k", "4k", "8k", "16k");
    for (int rc = d4top(d4); rc == r4success; rc = d4skip(d4, 1)) {
        std::printf("%5s  %-30s %-18s", text("ID").c_str(), text("MATERIAL").c_str(),
                    text("CATEGORY").c_str());
        for (const char *band :
             {"F125", "F250", "F500", "F1000", "F2000", "F4000", "F8000", "F16000"}) {
            std::printf(" %5s", text(band).c_str());
        }
        std::printf("\n");
    }
    d4close(d4);
    return 0;
}

}  // namespace qkcli
