// The shape of src/, read from the sources themselves: folders include only from their own
// layer and those below it, no two file pairs include each other (directly or round a longer
// circle), and files and functions stay short enough to read. ARCHITECTURE.md explains the
// layers; this test is what keeps them true.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {
// The layers of src/, bottom to top. A file may include from its own folder and from folders
// before it in this list, never from one after it.
const std::vector<std::string> kLayers = {
    "platform",  // threads, events, lock, archive, paths, reporting: no audio knowledge
    "dsp",       // the signal layer and the filter designers: no files, no threads
    "core",      // the root of sample objects, and the service bases built on it
    "sources",   // sound sources, the wave files and the wave sink
    "services",  // delay, comb, all-pass, low pass, reverb and late part services
    "binaural",  // HRTF sets, HRTF convolution, equaliser, cross-talk canceller
    "world",     // geometry, expressions, rooms, materials
    "field",     // sound field models: responses from a world
    "settings",  // the settings object and the engine context that owns world, sets, models
    "render",    // listeners and virtual sources
    "audio",     // devices
    "sdk",       // the engine thread, the block path, the facade
    "capi",      // the C interface, on the facade
};

// Includes that still run upwards, as "from-file -> included-file". The list only shrinks.
const std::set<std::string> kKnownUpward = {};
// Include circles that still stand, as the test names them. The list only shrinks.
const std::set<std::string> kKnownCircles = {
    "world/CDSC_World -> world/CDSC_Scene -> world/CDSC_World",
    "world/CDSC_Scene -> world/CVRPlane -> world/CVRPoint -> world/CDSC_Scene",
    "world/CDSC_World -> world/CDSC_Scene -> world/CVRPlane -> world/CVRPoint -> world/CDSC_World",
    "world/CDSC_World -> world/CDSC_Scene -> world/CVRPlane -> world/CVRPoint -> world/VRText -> "
    "world/CDSC_World",
    "world/CDSC_World -> world/CDSC_Scene -> world/CVRPlane -> world/CVRPoint -> world/VRText -> "
    "world/CVRConstant -> world/CDSC_World",
    "world/VRText -> world/CVRConstant -> world/VRText",
    "world/CDSC_World -> world/CDSC_Scene -> world/CWorldTextReader -> world/CDSC_World",
};
// Functions that are still too long, as "file:function's first line".
const std::set<std::string> kKnownLong = {
    "binaural/SofaImport.cpp:321",
};

constexpr int kMaxFileLines = 600;
constexpr int kMaxFunctionLines = 80;

const fs::path kSrc = fs::path(QK_TEST_SOURCE_ROOT) / "src";

struct SourceFile {
    std::string path;  // below src/, e.g. "render/BlockMath.cpp"
    std::vector<std::string> lines;
};

std::vector<SourceFile> ReadSources() {
    std::vector<SourceFile> files;
    for (const auto &entry : fs::recursive_directory_iterator(kSrc)) {
        const std::string ext = entry.path().extension().string();
        if (!entry.is_regular_file() || (ext != ".h" && ext != ".cpp")) {
            continue;
        }
        SourceFile file;
        file.path = fs::relative(entry.path(), kSrc).generic_string();
        std::ifstream in(entry.path());
        for (std::string line; std::getline(in, line);) {
            file.lines.push_back(line);
        }
        files.push_back(std::move(file));
    }
    std::sort(files.begin(), files.end(),
              [](const SourceFile &a, const SourceFile &b) { return a.path < b.path; });
    return files;
}

std::string Folder(const std::string &path) {
    return path.substr(0, path.find('/'));
}

// A file pair: the path without its extension.
std::string Unit(const std::string &path) {
    return path.substr(0, path.rfind('.'));
}

// The files of src/ a file includes, as paths below src/.
std::vector<std::string> Includes(const SourceFile &file) {
    static const std::regex include(R"(^\s*#\s*include\s*"([^"]+)\")");
    std::vector<std::string> out;
    for (const std::string &line : file.lines) {
        std::smatch m;
        if (!std::regex_search(line, m, include)) {
            continue;
        }
        std::string target = m[1].str();
        if (target.find('/') == std::string::npos) {
            target = Folder(file.path) + "/" + target;
        }
        if (fs::exists(kSrc / target)) {
            out.push_back(target);
        }
    }
    return out;
}

int Layer(const std::string &folder) {
    const auto it = std::find(kLayers.begin(), kLayers.end(), folder);
    return it == kLayers.end() ? -1 : static_cast<int>(it - kLayers.begin());
}

// Circles in the graph of file pairs, each as "a -> b -> ... -> a".
std::vector<std::string> Circles(const std::map<std::string, std::set<std::string>> &graph) {
    std::vector<std::string> circles;
    std::map<std::string, int> state;  // 1 on the walk's path, 2 done
    std::vector<std::string> path;
    std::function<void(const std::string &)> visit = [&](const std::string &unit) {
        state[unit] = 1;
        path.push_back(unit);
        const auto it = graph.find(unit);
        if (it != graph.end()) {
            for (const std::string &next : it->second) {
                if (state[next] == 1) {
                    std::string circle;
                    for (auto p = std::find(path.begin(), path.end(), next); p != path.end(); ++p) {
                        circle += *p + " -> ";
                    }
                    circles.push_back(circle + next);
                } else if (state[next] == 0) {
                    visit(next);
                }
            }
        }
        path.pop_back();
        state[unit] = 2;
    };
    for (const auto &node : graph) {
        if (state[node.first] == 0) {
            visit(node.first);
        }
    }
    return circles;
}

bool StartsWithWord(const std::string &line, const char *word) {
    const size_t n = std::char_traits<char>::length(word);
    return line.compare(0, n, word) == 0 && (line.size() == n || !std::isalnum(line[n]));
}

// Length in lines of each function defined at the left margin of a .cpp file: from the first
// line of its signature to its closing brace.
std::vector<std::pair<int, int>> FunctionLengths(const SourceFile &file) {
    std::vector<std::pair<int, int>> out;  // (first line, length)
    const std::vector<std::string> &lines = file.lines;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string &line = lines[i];
        if (line.empty() || std::isspace(static_cast<unsigned char>(line[0])) || line[0] == '#' ||
            line[0] == '/' || line[0] == '}' || StartsWithWord(line, "namespace") ||
            StartsWithWord(line, "struct") || StartsWithWord(line, "class") ||
            StartsWithWord(line, "enum") || StartsWithWord(line, "extern") ||
            StartsWithWord(line, "union") || StartsWithWord(line, "typedef")) {
            continue;
        }
        // The signature runs to the first line that opens the body or ends a declaration.
        size_t open = i;
        while (open < lines.size() && open < i + 8 && lines[open].find('{') == std::string::npos &&
               lines[open].find(';') == std::string::npos) {
            ++open;
        }
        if (open >= lines.size() || lines[open].empty() || lines[open].back() != '{' ||
            lines[i].substr(0, lines[i].find('(')).find('=') != std::string::npos) {
            continue;
        }
        size_t close = open + 1;
        while (close < lines.size() && lines[close].compare(0, 1, "}") != 0) {
            ++close;
        }
        out.emplace_back(static_cast<int>(i + 1), static_cast<int>(close - i + 1));
        i = close;
    }
    return out;
}
}  // namespace

TEST(SourceTree, FoldersIncludeOnlyFromTheirLayerAndBelow) {
    const std::vector<SourceFile> files = ReadSources();
    ASSERT_FALSE(files.empty());
    std::set<std::string> upward;
    for (const SourceFile &file : files) {
        const int from = Layer(Folder(file.path));
        EXPECT_GE(from, 0) << file.path << ": its folder is in no layer";
        for (const std::string &target : Includes(file)) {
            const int to = Layer(Folder(target));
            if (to > from) {
                upward.insert(file.path + " -> " + target);
            }
        }
    }
    for (const std::string &edge : upward) {
        EXPECT_TRUE(kKnownUpward.count(edge) == 1) << "an include runs upwards: " << edge;
    }
    for (const std::string &edge : kKnownUpward) {
        EXPECT_TRUE(upward.count(edge) == 1) << "gone, take it off the list: " << edge;
    }
}

TEST(SourceTree, NoTwoFilePairsIncludeEachOther) {
    std::map<std::string, std::set<std::string>> graph;
    for (const SourceFile &file : ReadSources()) {
        std::set<std::string> &edges = graph[Unit(file.path)];
        for (const std::string &target : Includes(file)) {
            if (Unit(target) != Unit(file.path)) {
                edges.insert(Unit(target));
            }
        }
    }
    const std::vector<std::string> circles = Circles(graph);
    for (const std::string &circle : circles) {
        EXPECT_TRUE(kKnownCircles.count(circle) == 1) << "include circle: " << circle;
    }
    for (const std::string &circle : kKnownCircles) {
        EXPECT_TRUE(std::count(circles.begin(), circles.end(), circle) == 1)
            << "gone, take it off the list: " << circle;
    }
}

TEST(SourceTree, FilesAndFunctionsStayShort) {
    for (const SourceFile &file : ReadSources()) {
        EXPECT_LE(static_cast<int>(file.lines.size()), kMaxFileLines) << file.path;
        if (file.path.size() < 4 || file.path.substr(file.path.size() - 4) != ".cpp") {
            continue;
        }
        for (const auto &function : FunctionLengths(file)) {
            if (kKnownLong.count(file.path + ":" + std::to_string(function.first)) == 1) {
                continue;
            }
            EXPECT_LE(function.second, kMaxFunctionLines)
                << file.path << ":" << function.first << ": a function of " << function.second
                << " lines";
        }
    }
}
