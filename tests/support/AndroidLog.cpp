#include "tests/support/AndroidLog.h"

#include <cctype>

namespace {

// A cursor over one line that consumes the fields of a liblog prefix.
class PrefixReader {
 public:
  PrefixReader(const std::string& text, size_t at) : mText(text), mAt(at) {}
  size_t At() const { return mAt; }

  bool Word() {
    return Run([](unsigned char c) { return !std::isspace(c); }) > 0;
  }
  bool Digits(size_t count) { return Run(IsDigit, count) == count; }
  bool Number() { return Run(IsDigit) > 0; }
  bool Char(char expected) {
    if (mAt >= mText.size() || mText[mAt] != expected) return false;
    ++mAt;
    return true;
  }
  bool Blanks() {
    return Run([](unsigned char c) { return c == ' '; }) > 0;
  }
  bool Priority() {
    return Run([](unsigned char c) { return std::isupper(c) != 0; }, 1) == 1;
  }

 private:
  static bool IsDigit(unsigned char c) { return std::isdigit(c) != 0; }

  template <typename Predicate>
  size_t Run(Predicate accepts, size_t limit = std::string::npos) {
    const size_t start = mAt;
    while (mAt < mText.size() && mAt - start < limit &&
           accepts(static_cast<unsigned char>(mText[mAt])))
      ++mAt;
    return mAt - start;
  }

  const std::string& mText;
  size_t mAt;
};

// Length of "<tag> <priority> " at lineStart and where the message begins,
// or false when the line has no liblog prefix.
bool ReadPrefix(const std::string& text, size_t lineStart, size_t& tagEnd, size_t& messageStart) {
  PrefixReader r(text, lineStart);
  if (!(r.Word() && r.Char(' ') && r.Priority() && r.Char(' '))) return false;
  tagEnd = r.At();
  const bool date = r.Digits(2) && r.Char('-') && r.Digits(2) && r.Char(' ');
  const bool time = r.Digits(2) && r.Char(':') && r.Digits(2) && r.Char(':') && r.Digits(2);
  const bool ids = r.Blanks() && r.Number() && r.Blanks() && r.Number() && r.Char(' ');
  messageStart = r.At();
  return date && time && ids;
}

}  // namespace

std::string StripAndroidLogPrefixes(const std::string& stderrText) {
  std::string stripped;
  size_t lineStart = 0;
  while (lineStart < stderrText.size()) {
    size_t lineEnd = stderrText.find('\n', lineStart);
    lineEnd = lineEnd == std::string::npos ? stderrText.size() : lineEnd + 1;
    size_t tagEnd = 0;
    size_t messageStart = 0;
    if (ReadPrefix(stderrText, lineStart, tagEnd, messageStart)) {
      stripped.append(stderrText, lineStart, tagEnd - lineStart);
      lineStart = messageStart;
    }
    stripped.append(stderrText, lineStart, lineEnd - lineStart);
    lineStart = lineEnd;
  }
  return stripped;
}
