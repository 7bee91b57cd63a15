#include "world/Code4.h"

#include <shapefil.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "world/FileBytes.h"

namespace qk::table {
namespace {
constexpr size_t kHeaderBytes = 32;
constexpr size_t kDescriptorBytes = 32;
constexpr uint8_t kHeaderEnd = 0x0D;
// An index file larger than this is not one of ours.
constexpr size_t kMaxIndexBytes = 64u << 20;

uint32_t word(const uint8_t *p, int bytes) {
    uint32_t v = 0;
    for (int i = 0; i < bytes; ++i) {
        v |= static_cast<uint32_t>(p[i]) << (8 * i);
    }
    return v;
}

std::string upper(std::string text) {
    for (char &c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string trimRight(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

// "name", "name.dbf" and "name.DBF" all name the table "name".
std::string basePath(const std::string &path) {
    if (path.size() > 4 && upper(path.substr(path.size() - 4)) == ".DBF") {
        return path.substr(0, path.size() - 4);
    }
    return path;
}

void silent(const char *) {}

SAHooks hooks() {
    SAHooks h;
    SASetupDefaultHooks(&h);
    h.Error = silent;  // problems reach the user through the caller's report
    return h;
}

DBFHandle handle(const Data4 *d4) {
    return static_cast<DBFHandle>(d4->dbf);
}

int fail(Code4 *c4, int code) {
    if (c4 != nullptr) {
        c4->errorCode = code;
    }
    return code;
}

// The bytes of record rec (from 1) into d4->record; false when it can't be read.
bool loadRecord(Data4 *d4, int rec) {
    const char *raw = DBFReadTuple(handle(d4), rec - 1);
    if (raw == nullptr) {
        d4->record.clear();
        d4->recNo = 0;
        return false;
    }
    d4->record.assign(raw, static_cast<size_t>(d4->recordLength));
    d4->recNo = rec;
    return true;
}

std::string fieldText(const Field4 &field, const std::string &record) {
    const size_t offset = static_cast<size_t>(field.offset);
    if (offset >= record.size()) {
        return std::string();
    }
    return record.substr(offset, static_cast<size_t>(field.len));
}

bool makeTag(Data4 *d4, const TAG4INFO &info, std::unique_ptr<Tag4> &out) {
    auto tag = std::make_unique<Tag4>();
    tag->index.name = upper(info.name);
    tag->index.expression = info.expression;
    if (tag->index.name.empty() || tag->index.name.size() > kMaxTagName ||
        !ParseKeyExpression(info.expression, tag->expression) ||
        d4field(d4, tag->expression.field.c_str()) == nullptr) {
        return false;
    }
    out = std::move(tag);
    return true;
}

// The keys of every tag from the records; deleted records have none.
bool rebuildKeys(Data4 *d4) {
    const int count = DBFGetRecordCount(handle(d4));
    std::vector<std::vector<IndexKey>> keys(d4->tags.size());
    std::vector<const Field4 *> fields;
    for (const auto &tag : d4->tags) {
        fields.push_back(d4field(d4, tag->expression.field.c_str()));
    }
    for (int rec = 1; rec <= count; ++rec) {
        const char *raw = DBFReadTuple(handle(d4), rec - 1);
        if (raw == nullptr) {
            return false;
        }
        const std::string record(raw, static_cast<size_t>(d4->recordLength));
        if (record[0] == '*') {
            continue;
        }
        for (size_t t = 0; t < d4->tags.size(); ++t) {
            keys[t].push_back(
                {MakeKey(d4->tags[t]->expression, fieldText(*fields[t], record)), rec});
        }
    }
    for (size_t t = 0; t < d4->tags.size(); ++t) {
        SortKeys(keys[t]);
        d4->tags[t]->index.keys = std::move(keys[t]);
    }
    d4->recNo = 0;
    d4->record.clear();
    return true;
}

bool writeIndex(const Data4 *d4) {
    std::vector<IndexTag> tags;
    for (const auto &tag : d4->tags) {
        tags.push_back(tag->index);
    }
    return files::ReplaceFile(d4->path + ".cdx", StoreIndex(tags));
}

bool loadIndex(Data4 *d4) {
    const std::string path = d4->path + ".cdx";
    if (!files::Exists(path)) {
        return true;  // a table without an index
    }
    std::vector<uint8_t> bytes;
    uint64_t fileSize = 0;
    std::vector<IndexTag> tags;
    if (!files::ReadBytes(path, kMaxIndexBytes, bytes, fileSize) || fileSize > kMaxIndexBytes ||
        !ParseIndex(bytes.data(), bytes.size(), tags)) {
        return false;
    }
    for (const IndexTag &stored : tags) {
        std::unique_ptr<Tag4> tag;
        if (!makeTag(d4, {stored.name, stored.expression}, tag)) {
            return false;
        }
        d4->tags.push_back(std::move(tag));
    }
    return rebuildKeys(d4);
}
}  // namespace

bool CheckTableHeader(const uint8_t *data, size_t size, uint64_t fileSize) {
    if (data == nullptr || size < kHeaderBytes + 1 || fileSize < size) {
        return false;
    }
    const uint32_t records = word(data + 4, 4);
    const uint32_t headerLength = word(data + 8, 2);
    const uint32_t recordLength = word(data + 10, 2);
    if (headerLength < kHeaderBytes + 1 || headerLength > size || recordLength < 2 ||
        records > static_cast<uint32_t>(kMaxRecords)) {
        return false;
    }
    // Every descriptor the reader will look at, up to the terminator or the header's end.
    uint64_t widths = 0;
    int fields = 0;
    for (size_t at = kHeaderBytes; at + kDescriptorBytes <= headerLength; at += kDescriptorBytes) {
        const uint8_t *d = data + at;
        if (d[0] == kHeaderEnd) {
            break;
        }
        const char type = static_cast<char>(d[11]);
        const uint32_t width = (type == 'N' || type == 'F') ? d[16] : word(d + 16, 2);
        if (d[0] == 0 || width == 0 || ++fields > kMaxFields) {
            return false;
        }
        widths += width;
    }
    if (fields == 0 || widths + 1 > recordLength) {
        return false;
    }
    return static_cast<uint64_t>(headerLength) +
               static_cast<uint64_t>(records) * static_cast<uint64_t>(recordLength) <=
           fileSize;
}

int code4initLow(Code4 *c4) {
    if (c4 == nullptr) {
        return e4parm;
    }
    c4->errorCode = 0;
    c4->initialised = true;
    return 0;
}

int code4initUndo(Code4 *c4) {
    if (c4 != nullptr) {
        c4->initialised = false;
    }
    return 0;
}

Data4 *d4create(Code4 *c4, const std::string &path, const std::vector<FIELD4INFO> &fields,
                const std::vector<TAG4INFO> &tags) {
    if (c4 == nullptr || path.empty() || fields.empty() ||
        fields.size() > static_cast<size_t>(kMaxFields)) {
        fail(c4, e4parm);
        return nullptr;
    }
    const std::string base = basePath(path);
    const std::filesystem::path target(base + ".dbf");
    const std::string temp =
        (target.parent_path() / ("qktmp_" + target.stem().string() + ".dbf")).string();
    SAHooks h = hooks();
    DBFHandle dbf = DBFCreateLL(temp.c_str(), "LDID/87", &h);
    if (dbf == nullptr) {
        fail(c4, e4create);
        return nullptr;
    }
    bool good = true;
    for (const FIELD4INFO &field : fields) {
        if (field.name.empty() || field.name.size() > 10 || field.len < 1 || field.len > 254 ||
            (field.type != 'C' && field.type != 'N') ||
            DBFAddNativeFieldType(dbf, upper(field.name).c_str(), field.type, field.len,
                                  field.dec) < 0) {
            good = false;
            break;
        }
    }
    DBFClose(dbf);
    std::error_code ec;
    if (!good || (std::filesystem::rename(temp, target, ec), ec)) {
        std::filesystem::remove(temp, ec);
        fail(c4, good ? e4create : e4fieldName);
        return nullptr;
    }
    // The index of the new, empty table: its tags with no keys.
    if (!tags.empty()) {
        std::vector<IndexTag> index;
        for (const TAG4INFO &tag : tags) {
            KeyExpression expression;
            if (!ParseKeyExpression(tag.expression, expression)) {
                fail(c4, e4tagInfo);
                return nullptr;
            }
            index.push_back({upper(tag.name), tag.expression, {}});
        }
        if (!files::ReplaceFile(base + ".cdx", StoreIndex(index))) {
            fail(c4, e4create);
            return nullptr;
        }
    }
    return d4open(c4, base);
}

Data4 *d4open(Code4 *c4, const std::string &path) {
    if (c4 == nullptr || path.empty()) {
        fail(c4, e4parm);
        return nullptr;
    }
    const std::string base = basePath(path);
    const std::string file = base + ".dbf";
    std::vector<uint8_t> header;
    uint64_t fileSize = 0;
    if (!files::ReadBytes(file, 65536, header, fileSize)) {
        fail(c4, e4open);
        return nullptr;
    }
    if (!CheckTableHeader(header.data(), header.size(), fileSize)) {
        fail(c4, e4data);
        return nullptr;
    }
    SAHooks h = hooks();
    DBFHandle dbf = DBFOpenLL(file.c_str(), "rb+", &h);
    if (dbf == nullptr) {
        dbf = DBFOpenLL(file.c_str(), "rb", &h);
    }
    if (dbf == nullptr) {
        fail(c4, e4open);
        return nullptr;
    }
    auto d4 = std::make_unique<Data4>();
    d4->code = c4;
    d4->path = base;
    d4->dbf = dbf;
    d4->recordLength = static_cast<int>(word(header.data() + 10, 2));
    int offset = 1;
    for (int i = 0; i < DBFGetFieldCount(dbf); ++i) {
        char name[XBASE_FLDNAME_LEN_READ + 1] = {};
        int width = 0;
        int decimals = 0;
        DBFGetFieldInfo(dbf, i, name, &width, &decimals);
        auto field = std::make_unique<Field4>();
        field->data = d4.get();
        field->name = upper(trimRight(name));
        field->type = DBFGetNativeFieldType(dbf, i);
        field->len = width;
        field->offset = offset;
        offset += width;
        d4->fields.push_back(std::move(field));
    }
    if (offset > d4->recordLength || !loadIndex(d4.get())) {
        fail(c4, offset > d4->recordLength ? e4data : e4index);
        d4close(d4.release());
        return nullptr;
    }
    c4->errorCode = 0;
    return d4.release();
}

int d4close(Data4 *d4) {
    if (d4 == nullptr) {
        return 0;
    }
    if (d4->dbf != nullptr) {
        DBFClose(handle(d4));
    }
    delete d4;
    return 0;
}

Field4 *d4field(Data4 *d4, const char *name) {
    if (d4 == nullptr || name == nullptr) {
        return nullptr;
    }
    const std::string wanted = upper(name);
    for (const auto &field : d4->fields) {
        if (field->name == wanted) {
            return field.get();
        }
    }
    return nullptr;
}

Tag4 *d4tag(Data4 *d4, const char *name) {
    if (d4 == nullptr || name == nullptr) {
        return nullptr;
    }
    const std::string wanted = upper(name);
    for (const auto &tag : d4->tags) {
        if (tag->index.name == wanted) {
            return tag.get();
        }
    }
    return nullptr;
}

void d4tagSelect(Data4 *d4, Tag4 *tag) {
    if (d4 != nullptr) {
        d4->selected = tag;
        d4->keyPos = 0;
    }
}

int d4seek(Data4 *d4, const char *key) {
    if (d4 == nullptr || key == nullptr) {
        return e4parm;
    }
    if (d4->selected == nullptr) {
        return r4noTag;
    }
    const std::string wanted = trimRight(key);
    const auto &keys = d4->selected->index.keys;
    const auto it = std::lower_bound(
        keys.begin(), keys.end(), wanted,
        [](const IndexKey &k, const std::string &w) { return trimRight(k.key) < w; });
    d4->keyPos = static_cast<size_t>(it - keys.begin());
    if (it == keys.end()) {
        d4->recNo = 0;
        d4->record.clear();
        return r4eof;
    }
    if (!loadRecord(d4, it->record)) {
        return fail(d4->code, e4read);
    }
    return trimRight(it->key) == wanted ? r4success : r4after;
}

namespace {
int moveTo(Data4 *d4, long position) {
    if (d4->selected != nullptr) {
        const auto &keys = d4->selected->index.keys;
        if (position < 0) {
            return r4bof;
        }
        if (position >= static_cast<long>(keys.size())) {
            d4->recNo = 0;
            d4->record.clear();
            return r4eof;
        }
        d4->keyPos = static_cast<size_t>(position);
        return loadRecord(d4, keys[d4->keyPos].record) ? r4success : fail(d4->code, e4read);
    }
    const long count = DBFGetRecordCount(handle(d4));
    if (position < 0) {
        return r4bof;
    }
    if (position >= count) {
        d4->recNo = 0;
        d4->record.clear();
        return r4eof;
    }
    return loadRecord(d4, static_cast<int>(position + 1)) ? r4success : fail(d4->code, e4read);
}

long currentPosition(const Data4 *d4) {
    if (d4->selected != nullptr) {
        return static_cast<long>(d4->keyPos);
    }
    return d4->recNo - 1L;
}

long lastPosition(const Data4 *d4) {
    if (d4->selected != nullptr) {
        return static_cast<long>(d4->selected->index.keys.size()) - 1;
    }
    return DBFGetRecordCount(handle(d4)) - 1L;
}
}  // namespace

int d4top(Data4 *d4) {
    if (d4 == nullptr) {
        return e4parm;
    }
    return lastPosition(d4) < 0 ? r4eof : moveTo(d4, 0);
}

int d4bottom(Data4 *d4) {
    if (d4 == nullptr) {
        return e4parm;
    }
    const long last = lastPosition(d4);
    return last < 0 ? r4eof : moveTo(d4, last);
}

int d4skip(Data4 *d4, long n) {
    if (d4 == nullptr) {
        return e4parm;
    }
    if (d4->recNo == 0) {
        return n < 0 ? r4bof : r4eof;
    }
    const long position = currentPosition(d4);
    const long target = n > kMaxRecords ? kMaxRecords : (n < -kMaxRecords ? -kMaxRecords : n);
    return moveTo(d4, position + target);
}

long d4recCountDo2(Data4 *d4) {
    return d4 == nullptr ? 0 : DBFGetRecordCount(handle(d4));
}

int d4appendStart(Data4 *d4, int) {
    if (d4 == nullptr) {
        return e4parm;
    }
    d4->record.assign(static_cast<size_t>(d4->recordLength), ' ');
    d4->appending = true;
    return 0;
}

int d4append(Data4 *d4) {
    if (d4 == nullptr || !d4->appending) {
        return d4 == nullptr ? e4parm : fail(d4->code, e4parm);
    }
    d4->appending = false;
    const int count = DBFGetRecordCount(handle(d4));
    if (count >= kMaxRecords ||
        DBFWriteTuple(handle(d4), count, const_cast<char *>(d4->record.data())) == 0) {
        return fail(d4->code, e4write);
    }
    const int rec = count + 1;
    d4->recNo = rec;
    for (const auto &tag : d4->tags) {
        const Field4 *field = d4field(d4, tag->expression.field.c_str());
        tag->index.keys.push_back({MakeKey(tag->expression, fieldText(*field, d4->record)), rec});
        SortKeys(tag->index.keys);
    }
    if (!d4->tags.empty() && !writeIndex(d4)) {
        return fail(d4->code, e4write);
    }
    return 0;
}

int d4reindex(Data4 *d4) {
    if (d4 == nullptr) {
        return e4parm;
    }
    if (!rebuildKeys(d4)) {
        return fail(d4->code, e4read);
    }
    if (!d4->tags.empty() && !writeIndex(d4)) {
        return fail(d4->code, e4write);
    }
    return 0;
}

Index4 *i4create(Data4 *d4, const char *, const std::vector<TAG4INFO> &tags) {
    if (d4 == nullptr || tags.empty()) {
        if (d4 != nullptr) {
            fail(d4->code, e4parm);
        }
        return nullptr;
    }
    std::vector<std::unique_ptr<Tag4>> made;
    for (const TAG4INFO &info : tags) {
        std::unique_ptr<Tag4> tag;
        if (!makeTag(d4, info, tag)) {
            fail(d4->code, e4tagInfo);
            return nullptr;
        }
        made.push_back(std::move(tag));
    }
    d4->selected = nullptr;
    d4->tags = std::move(made);
    if (!rebuildKeys(d4) || !writeIndex(d4)) {
        fail(d4->code, e4write);
        return nullptr;
    }
    auto index = std::make_unique<Index4>();
    index->data = d4;
    return index.release();
}

int i4close(Index4 *i4) {
    delete i4;
    return 0;
}

int f4assign(Field4 *f4, const char *text) {
    if (f4 == nullptr || text == nullptr || f4->data == nullptr || !f4->data->appending) {
        return e4parm;
    }
    std::string value(text);
    const size_t len = static_cast<size_t>(f4->len);
    if (value.size() > len) {
        value.resize(len);
    }
    const std::string pad(len - value.size(), ' ');
    const std::string padded = (f4->type == 'N' || f4->type == 'F') ? pad + value : value + pad;
    f4->data->record.replace(static_cast<size_t>(f4->offset), len, padded);
    return 0;
}

int f4assignInt(Field4 *f4, int value) {
    char text[16];
    std::snprintf(text, sizeof(text), "%d", value);
    return f4assign(f4, text);
}

int f4assignNotNull(Field4 *) {
    return 0;
}

std::string f4ptr(const Field4 *f4) {
    if (f4 == nullptr || f4->data == nullptr) {
        return std::string();
    }
    return fieldText(*f4, f4->data->record);
}

int f4len(const Field4 *f4) {
    return f4 == nullptr ? 0 : f4->len;
}

}  // namespace qk::table
