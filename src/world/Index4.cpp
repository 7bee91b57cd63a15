#include "world/Index4.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace qk::table {
namespace {
constexpr char kMagic[8] = {'Q', 'K', 'C', 'D', 'X', '1', '\r', '\n'};

std::string upper(std::string text) {
    for (char &c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string trimmed(const std::string &text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        return std::string();
    }
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

bool isNameChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// Reads little-endian words from bytes, refusing to pass the end.
class ByteReader {
  public:
    ByteReader(const uint8_t *data, size_t size) : m_data(data), m_size(size) {}
    bool Bytes(size_t n, std::string &out) {
        if (n > m_size - m_pos) {
            return false;
        }
        out.assign(reinterpret_cast<const char *>(m_data + m_pos), n);
        m_pos += n;
        return true;
    }
    bool Word(int bytes, uint32_t &out) {
        if (static_cast<size_t>(bytes) > m_size - m_pos) {
            return false;
        }
        out = 0;
        for (int i = 0; i < bytes; ++i) {
            out |= static_cast<uint32_t>(m_data[m_pos + static_cast<size_t>(i)]) << (8 * i);
        }
        m_pos += static_cast<size_t>(bytes);
        return true;
    }
    size_t Left() const { return m_size - m_pos; }

  private:
    const uint8_t *m_data;
    size_t m_size;
    size_t m_pos = 0;
};

void putWord(std::vector<uint8_t> &out, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}

void putText(std::vector<uint8_t> &out, const std::string &text) {
    out.insert(out.end(), text.begin(), text.end());
}

bool readTag(ByteReader &in, IndexTag &tag) {
    uint32_t nameLength = 0;
    uint32_t expressionLength = 0;
    uint32_t keyCount = 0;
    if (!in.Word(1, nameLength) || nameLength == 0 || nameLength > kMaxTagName ||
        !in.Bytes(nameLength, tag.name) || !in.Word(2, expressionLength) ||
        expressionLength > kMaxExpression || !in.Bytes(expressionLength, tag.expression) ||
        !in.Word(4, keyCount) || keyCount > kMaxKeys) {
        return false;
    }
    // Each key takes at least six bytes: a count that the bytes left can't hold is refused
    // before anything is reserved for it.
    if (keyCount > in.Left() / 6) {
        return false;
    }
    KeyExpression expression;
    if (!ParseKeyExpression(tag.expression, expression)) {
        return false;
    }
    tag.keys.resize(keyCount);
    for (IndexKey &key : tag.keys) {
        uint32_t length = 0;
        uint32_t record = 0;
        if (!in.Word(2, length) || length > kMaxKeyLength || !in.Bytes(length, key.key) ||
            !in.Word(4, record) || record == 0 || record > kMaxKeys) {
            return false;
        }
        key.record = static_cast<int32_t>(record);
    }
    return true;
}
}  // namespace

bool ParseKeyExpression(const std::string &text, KeyExpression &out) {
    const std::string t = upper(trimmed(text));
    if (t.empty() || t.size() > kMaxExpression) {
        return false;
    }
    // Peel the functions from the outside in; the steps then run the other way.
    std::string inner = t;
    std::vector<KeyExpression::Step> outerFirst;
    while (true) {
        const size_t open = inner.find('(');
        if (open == std::string::npos) {
            break;
        }
        if (inner.back() != ')') {
            return false;
        }
        const std::string word = trimmed(inner.substr(0, open));
        if (word == "UPPER") {
            outerFirst.push_back(KeyExpression::Upper);
        } else if (word == "ALLTRIM") {
            outerFirst.push_back(KeyExpression::AllTrim);
        } else if (word == "TRIM" || word == "RTRIM") {
            outerFirst.push_back(KeyExpression::TrimRight);
        } else if (word == "LTRIM") {
            outerFirst.push_back(KeyExpression::TrimLeft);
        } else {
            return false;
        }
        inner = trimmed(inner.substr(open + 1, inner.size() - open - 2));
    }
    if (inner.empty() || inner.size() > kMaxTagName + 1 ||
        !std::all_of(inner.begin(), inner.end(), isNameChar)) {
        return false;
    }
    out.field = inner;
    out.steps.assign(outerFirst.rbegin(), outerFirst.rend());
    return true;
}

std::string MakeKey(const KeyExpression &expression, const std::string &fieldText) {
    std::string key = fieldText;
    for (KeyExpression::Step step : expression.steps) {
        switch (step) {
            case KeyExpression::Upper:
                key = upper(key);
                break;
            case KeyExpression::AllTrim:
                key = trimmed(key);
                break;
            case KeyExpression::TrimRight:
                key.erase(key.find_last_not_of(' ') + 1);
                break;
            case KeyExpression::TrimLeft:
                key.erase(0, std::min(key.size(), key.find_first_not_of(' ')));
                break;
        }
    }
    if (key.size() > kMaxKeyLength) {
        key.resize(kMaxKeyLength);
    }
    return key;
}

void SortKeys(std::vector<IndexKey> &keys) {
    std::stable_sort(keys.begin(), keys.end(), [](const IndexKey &a, const IndexKey &b) {
        return a.key != b.key ? a.key < b.key : a.record < b.record;
    });
}

bool ParseIndex(const uint8_t *data, size_t size, std::vector<IndexTag> &tags) {
    if (data == nullptr || size < sizeof(kMagic) ||
        std::memcmp(data, kMagic, sizeof(kMagic)) != 0) {
        return false;
    }
    ByteReader in(data + sizeof(kMagic), size - sizeof(kMagic));
    uint32_t tagCount = 0;
    if (!in.Word(4, tagCount) || tagCount > static_cast<uint32_t>(kMaxTags)) {
        return false;
    }
    std::vector<IndexTag> loaded(tagCount);
    for (IndexTag &tag : loaded) {
        if (!readTag(in, tag)) {
            return false;
        }
        tag.name = upper(tag.name);
    }
    if (in.Left() != 0) {
        return false;
    }
    tags = std::move(loaded);
    return true;
}

std::vector<uint8_t> StoreIndex(const std::vector<IndexTag> &tags) {
    std::vector<uint8_t> out(std::begin(kMagic), std::end(kMagic));
    putWord(out, static_cast<uint32_t>(tags.size()), 4);
    for (const IndexTag &tag : tags) {
        const std::string name = tag.name.substr(0, kMaxTagName);
        const std::string expression = tag.expression.substr(0, kMaxExpression);
        putWord(out, static_cast<uint32_t>(name.size()), 1);
        putText(out, name);
        putWord(out, static_cast<uint32_t>(expression.size()), 2);
        putText(out, expression);
        putWord(out, static_cast<uint32_t>(tag.keys.size()), 4);
        for (const IndexKey &key : tag.keys) {
            const std::string k = key.key.substr(0, kMaxKeyLength);
            putWord(out, static_cast<uint32_t>(k.size()), 2);
            putText(out, k);
            putWord(out, static_cast<uint32_t>(key.record), 4);
        }
    }
    return out;
}

}  // namespace qk::table
