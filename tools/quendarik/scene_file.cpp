#include "scene_file.h"

#include <yaml-cpp/yaml.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <set>
#include <sstream>

namespace qkcli {
namespace {
namespace fs = std::filesystem;

// Reads one document into a scene, keeping the first problem as a line of text. Every check
// that fails returns false through Fail, so that callers can chain them with &&.
class Reader {
  public:
    Reader(const std::string &fileName, const std::string &baseDir, bool checkFiles)
        : m_file(fileName), m_base(baseDir), m_check(checkFiles) {}

    bool Scene(const YAML::Node &root, SceneFile &scene);
    const std::string &Error() const { return m_error; }

    bool Fail(const YAML::Mark &mark, const std::string &key, const std::string &what) {
        std::ostringstream text;
        text << m_file;
        if (!mark.is_null()) {
            text << ':' << mark.line + 1;
        }
        text << ": " << key << ": " << what;
        m_error = text.str();
        return false;
    }
    bool Fail(const YAML::Node &node, const std::string &key, const std::string &what) {
        return Fail(node.Mark(), key, what);
    }

  private:
    bool Keys(const YAML::Node &map, const std::string &where,
              std::initializer_list<const char *> allowed);
    bool Number(const YAML::Node &node, const std::string &key, double lo, double hi, double &out);
    bool Float(const YAML::Node &node, const std::string &key, double lo, double hi, float &out);
    bool Integer(const YAML::Node &node, const std::string &key, int lo, int hi, int &out);
    bool Flag(const YAML::Node &node, const std::string &key, bool &out);
    bool Text(const YAML::Node &node, const std::string &key, std::string &out);
    bool Point(const YAML::Node &node, const std::string &key, float out[3]);
    bool FilePath(const YAML::Node &node, const std::string &key, std::string &out);
    bool Angles(const YAML::Node &map, const std::string &key, Pose &pose);
    bool Keyframes(const YAML::Node &node, const std::string &key, const Pose &start, bool angles,
                   Trajectory &out);
    bool Motion(const YAML::Node &node, const std::string &key, const Pose &start, bool angles,
                Trajectory &out);
    bool Room(const YAML::Node &node, SceneFile &scene);
    bool Output(const YAML::Node &node, SceneFile &scene);
    bool Listener(const YAML::Node &node, SceneFile &scene);
    bool Source(const YAML::Node &node, const std::string &key, SourceEntry &source);
    bool Sources(const YAML::Node &node, SceneFile &scene);

    std::string m_file;
    std::string m_base;
    bool m_check;
    std::string m_error;
};

bool Reader::Keys(const YAML::Node &map, const std::string &where,
                  std::initializer_list<const char *> allowed) {
    if (!map.IsMap()) {
        return Fail(map, where, "should be a map of keys");
    }
    std::set<std::string> seen;
    for (const auto &entry : map) {
        const std::string key = entry.first.IsScalar() ? entry.first.Scalar() : "?";
        const std::string path = where.empty() ? key : where + "." + key;
        bool known = false;
        for (const char *name : allowed) {
            known = known || key == name;
        }
        if (!known) {
            return Fail(entry.first, path, "unknown key");
        }
        if (!seen.insert(key).second) {
            return Fail(entry.first, path, "given twice");
        }
    }
    return true;
}

bool Reader::Number(const YAML::Node &node, const std::string &key, double lo, double hi,
                    double &out) {
    if (!node.IsScalar()) {
        return Fail(node, key, "should be a number");
    }
    const std::string &text = node.Scalar();
    char *end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || !std::isfinite(value)) {
        return Fail(node, key, "should be a number, not '" + text + "'");
    }
    if (value < lo || value > hi) {
        std::ostringstream range;
        range << "should be from " << lo << " to " << hi << ", not " << text;
        return Fail(node, key, range.str());
    }
    out = value;
    return true;
}

bool Reader::Float(const YAML::Node &node, const std::string &key, double lo, double hi,
                   float &out) {
    double value = 0.0;
    if (!Number(node, key, lo, hi, value)) {
        return false;
    }
    out = static_cast<float>(value);
    return true;
}

bool Reader::Integer(const YAML::Node &node, const std::string &key, int lo, int hi, int &out) {
    double value = 0.0;
    if (!Number(node, key, lo, hi, value)) {
        return false;
    }
    if (value != std::floor(value)) {
        return Fail(node, key, "should be a whole number");
    }
    out = static_cast<int>(value);
    return true;
}

bool Reader::Flag(const YAML::Node &node, const std::string &key, bool &out) {
    const std::string text = node.IsScalar() ? node.Scalar() : "";
    if (text == "true" || text == "yes" || text == "on" || text == "1") {
        out = true;
    } else if (text == "false" || text == "no" || text == "off" || text == "0") {
        out = false;
    } else {
        return Fail(node, key, "should be true or false");
    }
    return true;
}

bool Reader::Text(const YAML::Node &node, const std::string &key, std::string &out) {
    if (!node.IsScalar() || node.Scalar().empty()) {
        return Fail(node, key, "should be a text");
    }
    out = node.Scalar();
    return true;
}

bool Reader::Point(const YAML::Node &node, const std::string &key, float out[3]) {
    if (!node.IsSequence() || node.size() != 3) {
        return Fail(node, key, "should be a list of three numbers [x, y, z] in metres");
    }
    for (size_t i = 0; i < 3; ++i) {
        if (!Float(node[i], key, -kMaxCoordinate, kMaxCoordinate, out[i])) {
            return false;
        }
    }
    return true;
}

bool Reader::FilePath(const YAML::Node &node, const std::string &key, std::string &out) {
    std::string name;
    if (!Text(node, key, name)) {
        return false;
    }
    fs::path path(name);
    if (path.is_relative() && !m_base.empty()) {
        path = fs::path(m_base) / path;
    }
    std::error_code ec;
    const fs::path whole = fs::absolute(path, ec);  // the library takes world files whole
    out = (ec ? path : whole).lexically_normal().string();
    if (m_check && !fs::is_regular_file(out, ec)) {
        return Fail(node, key, "no such file: " + out);
    }
    return true;
}

bool Reader::Angles(const YAML::Node &map, const std::string &key, Pose &pose) {
    const char *const names[] = {"yaw", "pitch", "roll"};
    const double limits[] = {3600.0, 90.0, 180.0};
    float *fields[] = {&pose.yaw, &pose.pitch, &pose.roll};
    for (int i = 0; i < 3; ++i) {
        if (map[names[i]] &&
            !Float(map[names[i]], key + "." + names[i], -limits[i], limits[i], *fields[i])) {
            return false;
        }
    }
    return true;
}

bool Reader::Keyframes(const YAML::Node &node, const std::string &key, const Pose &start,
                       bool angles, Trajectory &out) {
    if (!node.IsSequence() || node.size() == 0) {
        return Fail(node, key, "should be a list of keyframes");
    }
    if (node.size() > static_cast<size_t>(kMaxKeyframes)) {
        return Fail(node, key, "more than " + std::to_string(kMaxKeyframes) + " keyframes");
    }
    out.keys.reserve(node.size());
    Pose pose = start;  // what a key doesn't give is what the key before it had
    for (size_t i = 0; i < node.size(); ++i) {
        const YAML::Node &item = node[i];
        const std::string at = key + "[" + std::to_string(i) + "]";
        const bool keysOk = angles ? Keys(item, at, {"time", "position", "yaw", "pitch", "roll"})
                                   : Keys(item, at, {"time", "position"});
        if (!keysOk) {
            return false;
        }
        Keyframe frame;
        float place[3] = {pose.x, pose.y, pose.z};
        if (!item["time"]) {
            return Fail(item, at + ".time", "missing");
        }
        if (!Number(item["time"], at + ".time", 0.0, kMaxSceneSeconds, frame.time) ||
            (item["position"] && !Point(item["position"], at + ".position", place)) ||
            (angles && !Angles(item, at, pose))) {
            return false;
        }
        if (!out.keys.empty() && frame.time <= out.keys.back().time) {
            return Fail(item["time"], at + ".time", "should be later than the key before");
        }
        pose.x = place[0];
        pose.y = place[1];
        pose.z = place[2];
        frame.pose = pose;
        out.keys.push_back(frame);
    }
    return true;
}

bool Reader::Motion(const YAML::Node &node, const std::string &key, const Pose &start, bool angles,
                    Trajectory &out) {
    if (!Keys(node, key, {"interpolation", "loop", "keys"})) {
        return false;
    }
    if (node["interpolation"]) {
        const std::string how =
            node["interpolation"].IsScalar() ? node["interpolation"].Scalar() : "";
        if (how != "linear" && how != "smooth") {
            return Fail(node["interpolation"], key + ".interpolation",
                        "should be linear or smooth");
        }
        out.interpolation = how == "smooth" ? Interpolation::Smooth : Interpolation::Linear;
    }
    if (node["loop"] && !Flag(node["loop"], key + ".loop", out.loop)) {
        return false;
    }
    if (!node["keys"]) {
        return Fail(node, key + ".keys", "missing");
    }
    return Keyframes(node["keys"], key + ".keys", start, angles, out);
}

bool Reader::Room(const YAML::Node &node, SceneFile &scene) {
    if (!Keys(node, "room", {"preset", "shoebox", "world"})) {
        return false;
    }
    if (node.size() != 1) {
        return Fail(node, "room", "should give one of preset, shoebox or world");
    }
    if (node["preset"]) {
        scene.room = RoomKind::Preset;
        return Integer(node["preset"], "room.preset", 1, 6, scene.preset);
    }
    if (node["shoebox"]) {
        scene.room = RoomKind::ShoeBox;
        const YAML::Node &box = node["shoebox"];
        if (!Point(box, "room.shoebox", scene.box)) {
            return false;
        }
        if (scene.box[0] <= 0.0f || scene.box[1] <= 0.0f || scene.box[2] <= 0.0f) {
            return Fail(box, "room.shoebox", "width, depth and height should be above 0");
        }
        return true;
    }
    scene.room = RoomKind::World;
    return FilePath(node["world"], "room.world", scene.world);
}

bool Reader::Output(const YAML::Node &node, SceneFile &scene) {
    if (!Keys(node, "output", {"kind", "file", "device", "connect", "client"})) {
        return false;
    }
    const std::string kind = node["kind"] && node["kind"].IsScalar() ? node["kind"].Scalar() : "";
    if (kind == "file") {
        scene.output = OutputKind::File;
    } else if (kind == "alsa") {
        scene.output = OutputKind::Alsa;
    } else if (kind == "jack") {
        scene.output = OutputKind::Jack;
    } else {
        return Fail(node["kind"] ? node["kind"] : node, "output.kind",
                    "should be file, alsa or jack");
    }
    if (node["file"]) {
        std::string name;
        if (!Text(node["file"], "output.file", name)) {
            return false;
        }
        const fs::path path(name);
        scene.outFile = path.is_relative() && !m_base.empty()
                            ? (fs::path(m_base) / path).lexically_normal().string()
                            : name;
    }
    return (!node["device"] || Text(node["device"], "output.device", scene.device)) &&
           (!node["connect"] || Flag(node["connect"], "output.connect", scene.connect)) &&
           (!node["client"] || Text(node["client"], "output.client", scene.client));
}

bool Reader::Listener(const YAML::Node &node, SceneFile &scene) {
    if (!Keys(node, "listener", {"position", "yaw", "pitch", "roll", "trajectory"})) {
        return false;
    }
    scene.listenerGiven = true;
    float place[3] = {0.0f, 0.0f, 0.0f};
    if ((node["position"] && !Point(node["position"], "listener.position", place)) ||
        !Angles(node, "listener", scene.listener)) {
        return false;
    }
    scene.listener.x = place[0];
    scene.listener.y = place[1];
    scene.listener.z = place[2];
    return !node["trajectory"] || Motion(node["trajectory"], "listener.trajectory", scene.listener,
                                         true, scene.listenerTrajectory);
}

bool Reader::Source(const YAML::Node &node, const std::string &key, SourceEntry &source) {
    if (!Keys(node, key,
              {"name", "file", "noise", "capture", "jack", "connect", "position", "trajectory",
               "gain", "mute"})) {
        return false;
    }
    source.line = node.Mark().is_null() ? 0 : node.Mark().line + 1;
    int kinds = 0;
    for (const char *kind : {"file", "noise", "capture", "jack"}) {
        kinds += node[kind] ? 1 : 0;
    }
    if (kinds != 1) {
        return Fail(node, key, "should give one of file, noise, capture or jack");
    }
    bool flag = true;
    if (node["file"]) {
        source.kind = SourceKind::File;
        if (!FilePath(node["file"], key + ".file", source.file)) {
            return false;
        }
    } else if (node["noise"]) {
        source.kind = SourceKind::Noise;
        if (!Float(node["noise"], key + ".noise", -120.0, 0.0, source.level)) {
            return false;
        }
    } else {
        const bool capture = static_cast<bool>(node["capture"]);
        source.kind = capture ? SourceKind::Capture : SourceKind::Jack;
        const char *word = capture ? "capture" : "jack";
        if (!Flag(node[word], key + "." + word, flag)) {
            return false;
        }
        if (!flag) {
            return Fail(node[word], key + "." + word, "should be true");
        }
    }
    float place[3] = {0.0f, 1.0f, 0.0f};
    if ((node["name"] && !Text(node["name"], key + ".name", source.name)) ||
        (node["connect"] && !Text(node["connect"], key + ".connect", source.connect)) ||
        (node["position"] && !Point(node["position"], key + ".position", place)) ||
        (node["gain"] && !Float(node["gain"], key + ".gain", -120.0, 40.0, source.gain)) ||
        (node["mute"] && !Flag(node["mute"], key + ".mute", source.mute))) {
        return false;
    }
    source.pose.x = place[0];
    source.pose.y = place[1];
    source.pose.z = place[2];
    return !node["trajectory"] ||
           Motion(node["trajectory"], key + ".trajectory", source.pose, false, source.trajectory);
}

bool Reader::Sources(const YAML::Node &node, SceneFile &scene) {
    if (!node.IsSequence()) {
        return Fail(node, "sources", "should be a list of sources");
    }
    if (node.size() > static_cast<size_t>(kMaxSceneSources)) {
        return Fail(node, "sources", "more than " + std::to_string(kMaxSceneSources) + " sources");
    }
    for (size_t i = 0; i < node.size(); ++i) {
        SourceEntry source;
        source.name = "source " + std::to_string(i + 1);
        if (!Source(node[i], "sources[" + std::to_string(i) + "]", source)) {
            return false;
        }
        scene.sources.push_back(std::move(source));
    }
    return true;
}

bool Reader::Scene(const YAML::Node &root, SceneFile &scene) {
    if (!Keys(root, "",
              {"rate", "block", "seconds", "room", "model", "order", "reverb", "hrtf", "output",
               "osc", "listener", "sources", "move_rate"})) {
        return false;
    }
    double seconds = scene.seconds;
    if ((root["rate"] && !Integer(root["rate"], "rate", 8000, 192000, scene.rate)) ||
        (root["block"] && !Integer(root["block"], "block", 16, 32768, scene.block)) ||
        (root["seconds"] &&
         !Number(root["seconds"], "seconds", 0.001, kMaxSceneSeconds, seconds)) ||
        (root["room"] && !Room(root["room"], scene)) ||
        (root["model"] && !Integer(root["model"], "model", 0, 3, scene.model)) ||
        (root["move_rate"] &&
         !Number(root["move_rate"], "move_rate", 0.0, 1000.0, scene.moveRate)) ||
        (root["order"] && !Integer(root["order"], "order", 0, 30, scene.order)) ||
        (root["reverb"] && !Float(root["reverb"], "reverb", 0.0, 1.0, scene.reverbDry)) ||
        (root["output"] && !Output(root["output"], scene)) ||
        (root["listener"] && !Listener(root["listener"], scene)) ||
        (root["sources"] && !Sources(root["sources"], scene))) {
        return false;
    }
    scene.seconds = seconds;
    if (root["osc"]) {
        if (!Keys(root["osc"], "osc", {"port"}) ||
            !Integer(root["osc"]["port"], "osc.port", 1, 65535, scene.oscPort)) {
            return false;
        }
    }
    if (root["hrtf"]) {
        std::string name;
        if (!Text(root["hrtf"], "hrtf", name)) {
            return false;
        }
        scene.hrtfIsPath = name.find('/') != std::string::npos;
        scene.hrtf = name;
        if (scene.hrtfIsPath && !FilePath(root["hrtf"], "hrtf", scene.hrtf)) {
            return false;
        }
    }
    if (scene.model > 0 && scene.room == RoomKind::None) {
        return Fail(root["model"], "model", "a room model needs a room");
    }
    return true;
}
}  // namespace

bool ReadSceneText(const std::string &text, const std::string &fileName, const std::string &baseDir,
                   bool checkFiles, SceneFile &scene, std::string &error) {
    scene = SceneFile{};
    scene.path = fileName;
    Reader reader(fileName, baseDir, checkFiles);
    try {
        const YAML::Node root = YAML::Load(text);
        if (root.IsNull()) {
            error = fileName + ": empty scene";
            return false;
        }
        if (reader.Scene(root, scene)) {
            return true;
        }
        error = reader.Error();
    } catch (const YAML::Exception &e) {
        // The parser's own words after its mark: "end of map not found" and the like.
        reader.Fail(e.mark, "syntax", e.msg);
        error = reader.Error();
    } catch (const std::exception &e) {
        error = fileName + ": " + e.what();
    }
    return false;
}

bool ReadSceneFile(const std::string &path, SceneFile &scene, std::string &error) {
    std::error_code ec;
    constexpr uintmax_t kMaxBytes = 64u << 20;  // a scene of keyframes, not a data set
    const uintmax_t size = fs::file_size(path, ec);
    std::ifstream in(path, std::ios::binary);
    if (ec || !in) {
        error = path + ": can't be read";
        return false;
    }
    if (size > kMaxBytes) {
        error = path + ": larger than 64 MB, not a scene";
        return false;
    }
    std::ostringstream text;
    text << in.rdbuf();
    const std::string base = fs::path(path).parent_path().string();
    return ReadSceneText(text.str(), path, base, true, scene, error);
}

bool IsSceneFileName(const std::string &arg) {
    const auto ends = [&](const char *tail) {
        const std::string t(tail);
        return arg.size() > t.size() && arg.compare(arg.size() - t.size(), t.size(), t) == 0;
    };
    return ends(".yaml") || ends(".yml");
}

}  // namespace qkcli
