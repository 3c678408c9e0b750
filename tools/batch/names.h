// Names of a batch's files: their order, which are meant, and what becomes of them.
#ifndef RASTREL_TOOLS_BATCH_NAMES_H
#define RASTREL_TOOLS_BATCH_NAMES_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace rastrel::tool {

// As people order names: page2 before page10, and what lies in a folder before names that go on.
bool NaturallyBefore(std::string_view one, std::string_view other);

// Whether one of the patterns (*, ?, [a-z]) fits: one with a slash the whole path, others the last name.
bool FitsOne(const std::string& path, std::span<const std::string> patterns);

// What the parts of an output's name are made of.
struct NameParts {
  std::string root;    // the last name of the folder that was given
  std::string folder;  // from there to the file
  std::string stem;
  std::string ending;  // with its full stop
};

// The name of an output, or of one for each page of a file.
struct OutputName {
  std::string before, after;
  int pageDigits = -1;  // of the page's number, which stands between them; -1 where there is none

  bool hasPage() const { return pageDigits >= 0; }
  std::string OfPage(int page) const;
  // For comparing and showing.
  std::string Text() const;
};

// "{folder}/{stem}-{page:04}{ext}"
class NamePattern {
 public:
  // Throws UsageError.
  explicit NamePattern(std::string_view text);
  // Below `output`; never outside.
  OutputName Name(const std::string& output, const NameParts& parts) const;
  bool hasPage() const { return hasPage_; }

 private:
  struct Piece {
    std::string text;
    std::string NameParts::*part = nullptr;  // null: the text as it is, or the page's number
    int pageDigits = -1;
  };
  std::vector<Piece> pieces_;
  bool hasPage_ = false;
};

}  // namespace rastrel::tool

#endif
