#include "world/VRText.h"

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "world/CDSC_World.h"
#include "world/CVRConstant.h"

namespace vrtext {
namespace {
bool isSeparator(char c) {
    return c != '\0' && std::strchr(" +-*/()[]{}", c) != nullptr;
}
}  // namespace

std::string FormatValue(double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.3f", value);
    return buffer;
}

bool IsWholeWord(const std::string &text, size_t p, size_t n) {
    const bool behind = p + n >= text.size() || isSeparator(text[p + n]);
    const bool before = p <= 1 || isSeparator(text[p - 1]);
    return behind && before;
}

void ReplaceAll(std::string &text, const std::string &from, const std::string &to) {
    if (from.empty()) {
        return;
    }
    const bool grows = to.size() > from.size();
    if (to.find(from) != std::string::npos) {
        for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
            if (grows && text.size() + to.size() - from.size() > kMaxExpressionLength) {
                return;
            }
            text.replace(at, from.size(), to);
            at += to.size();
        }
        return;
    }
    // Nothing before the first occurrence changes, so a search from the start can begin just
    // before the place of the last replacement and find the same.
    for (size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at >= from.size() ? at - from.size() + 1 : 0)) {
        if (grows && text.size() + to.size() - from.size() > kMaxExpressionLength) {
            return;
        }
        text.replace(at, from.size(), to);
    }
}

void SubstituteConstants(const CDSC_World &world, std::string &text) {
    for (const auto &constant : world.m_Constants) {
        const std::string &name = constant->m_strName;
        if (name.empty()) {
            continue;
        }
        const size_t at = text.find(name);
        if (at == std::string::npos || !IsWholeWord(text, at, name.size())) {
            continue;
        }
        ReplaceAll(text, name, FormatValue(constant->m_fValue));
    }
}

std::string CommasToPoints(std::string text) {
    for (char &c : text) {
        if (c == ',') {
            c = '.';
        }
    }
    return text;
}

std::string TrimBlanks(const std::string &text) {
    const size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos) {
        return std::string();
    }
    const size_t end = text.find_last_not_of(' ');
    return text.substr(begin, end - begin + 1);
}

int ToInt(const std::string &text) {
    const long long v = std::strtoll(text.c_str(), nullptr, 10);
    if (v > INT_MAX) {
        return INT_MAX;
    }
    if (v < INT_MIN) {
        return INT_MIN;
    }
    return static_cast<int>(v);
}

bool BooleanWord(const std::string &text, float &out) {
    if (text == "FALSE" || text == "false") {
        out = 0.0f;
        return true;
    }
    if (text == "TRUE" || text == "true") {
        out = 1.0f;
        return true;
    }
    return false;
}

}  // namespace vrtext
