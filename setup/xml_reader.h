// Reads the elements of an XML text one after the other, as far as configuration files of the server need it: tags,
// attributes, references. Comments, declarations and text between tags are passed over. Linear; no recursion.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qiv::setup {

class CXmlReader {
 public:
  /// `text`: UTF-8, or UTF-16 with its mark; kept until the end.
  explicit CXmlReader(std::string text);

  /// Goes to the next start tag. False at the end, and where the text is no well-formed XML (see IsBroken).
  bool NextElement();
  /// Names of the elements around it and its own, each behind a "/": "/configuration/system.webServer/modules/add".
  const std::string& Path() const { return path_; }
  /// An attribute of the element; empty when it has none of this name.
  std::string Attribute(std::string_view name) const;
  /// An attribute of the innermost element around it that has this name; empty when there is none.
  std::string AttributeAround(std::string_view element, std::string_view name) const;
  bool IsBroken() const { return broken_; }

 private:
  struct Element {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
  };

  bool Fail();
  bool SkipTo(std::string_view end);
  bool ReadStartTag();
  bool ReadEndTag();
  void Leave();

  std::string text_;
  std::size_t at_ = 0;
  std::string path_;
  std::vector<Element> open_;  ///< from the root to the current one
  bool is_empty_ = false;      ///< the current one was closed by its own tag
  bool broken_ = false;
};

}  // namespace qiv::setup
