#include "world/MaterialTables.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include "platform/Paths.h"
#include "world/FileBytes.h"

using namespace qk::table;

namespace {
struct DefaultMaterial {
    const char *name;
    const char *image;
    float coeff[8];
};

// The rows a new materials table starts with; the last three are the materials of the
// generated rooms.
const DefaultMaterial kDefaultMaterials[] = {
    {"Concrete block, unpainted", "wall101.bmp", {36, 44, 31, 29, 39, 25, 25, 25}},
    {"Concrete block, painted", "wall101.bmp", {10, 5, 6, 7, 9, 8, 8, 8}},
    {"Glass, window", "wall101.bmp", {35, 25, 18, 12, 7, 4, 4, 4}},
    {"Plaster on lath", "floor101.bmp", {14, 10, 6, 5, 4, 3, 3, 3}},
    {"Plywood paneling", "wall.bmp", {28, 22, 17, 9, 10, 11, 11, 11}},
    {"Carpet on pad", "floor101.bmp", {8, 24, 57, 69, 71, 73, 73, 73}},
    {"Gypsum board, one-half inch", "wall101.bmp", {29, 10, 5, 4, 7, 9, 9, 9}},
    {"Drapery, lightweight", "floor101.bmp", {3, 4, 11, 17, 24, 35, 35, 35}},
    {"Wood", "ceiling.bmp", {15, 13, 10, 9, 8, 7, 7, 7}},
    {"abs_floor", "floor.bmp", {8, 24, 57, 69, 71, 73, 73, 73}},
    {"abs_wall", "wall.bmp", {29, 10, 5, 4, 7, 9, 9, 9}},
    {"abs_ceiling", "ceiling.bmp", {10, 5, 6, 7, 9, 8, 8, 8}},
};

const char *const kDefaultCategories[] = {"None",     "Floors",           "Carpets",
                                          "Ceilings", "Reflective Walls", "Absorptive Walls",
                                          "Windows",  "Miscellaneous"};

const char *const kBandFields[8] = {"F125",  "F250",  "F500",  "F1000",
                                    "F2000", "F4000", "F8000", "F16000"};

struct Closer {
    void operator()(Data4 *d4) const { d4close(d4); }
};
using Table = std::unique_ptr<Data4, Closer>;

int codeOr(const Code4 &code, int fallback) {
    return code.errorCode != 0 ? code.errorCode : fallback;
}

// Appends a row with that ID to the table at path, its other fields set by fill. The append's
// result, or the open's error.
template <typename Fill>
int appendRow(Code4 &code, const std::string &path, int iID, Fill fill) {
    Table table(d4open(&code, path));
    if (!table) {
        return codeOr(code, e4open);
    }
    Data4 *d4 = table.get();
    d4appendStart(d4, 0);
    f4assignInt(d4field(d4, "ID"), iID);
    fill(d4);
    return d4append(d4);
}

// Holds an exclusive lock on a file of the folder, so that two programs starting at once
// don't both find the tables missing and both write the default rows.
class FolderLock {
  public:
    explicit FolderLock(const std::string &folder)
        : m_fd(::open((folder + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
        if (m_fd >= 0) {
            ::flock(m_fd, LOCK_EX);
        }
    }
    ~FolderLock() {
        if (m_fd >= 0) {
            ::flock(m_fd, LOCK_UN);
            ::close(m_fd);
        }
    }
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

  private:
    int m_fd;
};
}  // namespace

std::string MaterialTables::Folder() {
    return qk::JoinPath(qk::CommonFolder(), "TORVELLAN/Common/Databases");
}

std::string MaterialTables::MaterialsPath() {
    return qk::JoinPath(Folder(), "materials");
}

std::string MaterialTables::CategoriesPath() {
    return qk::JoinPath(Folder(), "materials_categories");
}

const std::vector<FIELD4INFO> &MaterialTables::MaterialFields() {
    static const std::vector<FIELD4INFO> fields = {
        {"ID", 'N', 5, 0},     {"MATERIAL", 'C', 50, 0}, {"CATEGORY", 'C', 50, 0},
        {"DESC", 'C', 250, 0}, {"IMAGE", 'C', 100, 0},   {"COLOR", 'C', 100, 0},
        {"F125", 'C', 10, 0},  {"F250", 'C', 10, 0},     {"F500", 'C', 10, 0},
        {"F1000", 'C', 10, 0}, {"F2000", 'C', 10, 0},    {"F4000", 'C', 10, 0},
        {"F8000", 'C', 10, 0}, {"F16000", 'C', 10, 0}};
    return fields;
}

const std::vector<TAG4INFO> &MaterialTables::MaterialTags() {
    static const std::vector<TAG4INFO> tags = {{"ID", "ID"},
                                               {"MATERIAL", "ALLTRIM(UPPER(MATERIAL))"},
                                               {"CATEGORY", "ALLTRIM(UPPER(CATEGORY))"}};
    return tags;
}

const std::vector<FIELD4INFO> &MaterialTables::CategoryFields() {
    static const std::vector<FIELD4INFO> fields = {{"ID", 'N', 5, 0}, {"CATEGORY", 'C', 50, 0}};
    return fields;
}

const std::vector<TAG4INFO> &MaterialTables::CategoryTags() {
    static const std::vector<TAG4INFO> tags = {{"ID", "ID"},
                                               {"CATEGORY", "ALLTRIM(UPPER(CATEGORY))"}};
    return tags;
}

int MaterialTables::EnsureTable(Code4 &code, const std::string &path,
                                const std::vector<FIELD4INFO> &fields,
                                const std::vector<TAG4INFO> &tags) {
    const bool hasTable = qk::files::Exists(path + ".dbf");
    const bool hasIndex = qk::files::Exists(path + ".cdx");
    if (hasTable && hasIndex) {
        return 1;
    }
    code.errorCode = 0;
    if (hasTable) {
        Table table(d4open(&code, path));
        if (!table) {
            return codeOr(code, e4open);
        }
        Index4 *index = i4create(table.get(), nullptr, tags);
        if (index == nullptr) {
            return codeOr(code, e4index);
        }
        i4close(index);
        const int result = d4reindex(table.get());
        return result < 0 ? result : 0;
    }
    if (hasIndex) {
        std::error_code ec;
        std::filesystem::remove(path + ".cdx", ec);
    }
    Table table(d4create(&code, path, fields, tags));
    return table ? 0 : codeOr(code, e4create);
}

int MaterialTables::EnsureDefaults(Code4 &code) {
    std::error_code ec;
    std::filesystem::create_directories(Folder(), ec);
    const FolderLock lock(Folder());
    int result = EnsureTable(code, MaterialsPath(), MaterialFields(), MaterialTags());
    if (result < 0) {
        return result;
    }
    if (result == 0) {
        int id = 1;
        for (const DefaultMaterial &m : kDefaultMaterials) {
            const int added =
                AddMaterial(code, MaterialsPath(), id++, m.name, "None", m.image, m.coeff);
            if (added != 0) {
                return added;
            }
        }
    }
    result = EnsureTable(code, CategoriesPath(), CategoryFields(), CategoryTags());
    if (result < 0) {
        return result;
    }
    if (result == 0) {
        int id = 1;
        for (const char *name : kDefaultCategories) {
            const int added = AddCategory(code, CategoriesPath(), id++, name);
            if (added != 0) {
                return added;
            }
        }
    }
    return 0;
}

int MaterialTables::AddMaterial(Code4 &code, const std::string &path, int iID,
                                const std::string &strName, const std::string &strCategory,
                                const std::string &strImage, const float afCoeff[8]) {
    return appendRow(code, path, iID, [&](Data4 *d4) {
        f4assign(d4field(d4, "MATERIAL"), strName.c_str());
        f4assign(d4field(d4, "CATEGORY"), strCategory.c_str());
        f4assign(d4field(d4, "IMAGE"), strImage.c_str());
        f4assign(d4field(d4, "COLOR"), "");
        f4assign(d4field(d4, "DESC"), "");
        for (int band = 0; band < 8; ++band) {
            char text[64];
            std::snprintf(text, sizeof(text), "%.0f", static_cast<double>(afCoeff[band]));
            f4assign(d4field(d4, kBandFields[band]), text);
        }
    });
}

int MaterialTables::AddCategory(Code4 &code, const std::string &path, int iID,
                                const std::string &strName) {
    return appendRow(code, path, iID,
                     [&](Data4 *d4) { f4assign(d4field(d4, "CATEGORY"), strName.c_str()); });
}

int MaterialTables::ListField(Code4 &code, const std::string &path, const std::string &strField,
                              std::vector<std::string> &out) {
    out.clear();
    Table table(d4open(&code, path));
    if (!table) {
        return codeOr(code, e4open);
    }
    Data4 *d4 = table.get();
    const Field4 *field = d4field(d4, strField.c_str());
    if (field == nullptr) {
        return e4fieldName;
    }
    d4tagSelect(d4, nullptr);
    for (int rc = d4top(d4); rc == r4success; rc = d4skip(d4, 1)) {
        std::string text = f4ptr(field);
        text.erase(text.find_last_not_of(' ') + 1);
        out.push_back(text);
    }
    return 0;
}
