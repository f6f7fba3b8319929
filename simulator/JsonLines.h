#pragma once

#include <map>
#include <string>

namespace mox::sim {

// Where each value of a JSON text stands: the line of every member and element, by its path
// ("transmitters[2].frequencyMHz"). The JSON library keeps no positions, so the text is walked
// once more; it must already have parsed.
class JsonLines {
  public:
    explicit JsonLines(const std::string& text);
    // The line of the value at path; the line of its closest enclosing value when the path has
    // no value of its own (a member that is missing); 1 for the root.
    int lineOf(const std::string& path) const;

  private:
    void value(const std::string& path);
    void skipSpace();
    void skipString();
    void skipScalar();

    const std::string& mText;
    size_t mAt = 0;
    int mLine = 1;
    std::map<std::string, int> mLines;
};

}  // namespace mox::sim
