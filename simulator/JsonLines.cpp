#include "simulator/JsonLines.h"

namespace mox::sim {

JsonLines::JsonLines(const std::string& text) : mText(text) {
    value("");
}

int JsonLines::lineOf(const std::string& path) const {
    std::string p = path;
    while (true) {
        auto it = mLines.find(p);
        if (it != mLines.end()) return it->second;
        const size_t cut = p.find_last_of(".[");
        if (cut == std::string::npos) return 1;
        p.resize(cut);
    }
}

void JsonLines::skipSpace() {
    while (mAt < mText.size() &&
           (mText[mAt] == ' ' || mText[mAt] == '\t' || mText[mAt] == '\n' || mText[mAt] == '\r')) {
        if (mText[mAt] == '\n') ++mLine;
        ++mAt;
    }
}

void JsonLines::skipString() {
    ++mAt;  // the opening quote
    while (mAt < mText.size() && mText[mAt] != '"') mAt += mText[mAt] == '\\' ? 2 : 1;
    ++mAt;
}

void JsonLines::skipScalar() {
    while (mAt < mText.size() && mText[mAt] != ',' && mText[mAt] != '}' && mText[mAt] != ']' &&
           mText[mAt] != ' ' && mText[mAt] != '\n' && mText[mAt] != '\r' && mText[mAt] != '\t') {
        ++mAt;
    }
}

void JsonLines::value(const std::string& path) {
    skipSpace();
    if (!mLines.count(path)) mLines[path] = mLine;
    if (mAt >= mText.size()) return;
    const char c = mText[mAt];
    if (c == '"') {
        skipString();
    } else if (c == '{') {
        ++mAt;
        skipSpace();
        while (mAt < mText.size() && mText[mAt] != '}') {
            const size_t start = mAt + 1;
            const int keyLine = mLine;
            skipString();
            const std::string key = mText.substr(start, mAt - 1 - start);
            const std::string member = path.empty() ? key : path + "." + key;
            mLines[member] = keyLine;
            skipSpace();
            ++mAt;  // ':'
            value(member);
            skipSpace();
            if (mAt < mText.size() && mText[mAt] == ',') ++mAt;
            skipSpace();
        }
        ++mAt;
    } else if (c == '[') {
        ++mAt;
        skipSpace();
        for (size_t index = 0; mAt < mText.size() && mText[mAt] != ']'; ++index) {
            value(path + "[" + std::to_string(index) + "]");
            skipSpace();
            if (mAt < mText.size() && mText[mAt] == ',') ++mAt;
            skipSpace();
        }
        ++mAt;
    } else {
        skipScalar();
    }
}

}  // namespace mox::sim
