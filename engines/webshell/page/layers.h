// The pieces of code that are walked: the page's own, and texts that it evaluates.
#pragma once

#include <cstddef>
#include <list>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "engines/webshell/page/findings.h"
#include "engines/webshell/page/script.h"
#include "engines/webshell/page/value.h"

namespace qiv {

class CPageLayers {
 public:
  struct Part {
    std::string_view code;
    ScriptSyntax syntax;
    PageCodePlace evaluated = {};  ///< by which code of the page, if it is no such itself
  };

  /// `room`: bytes of texts that may be followed.
  CPageLayers(const PageCode& code, std::size_t room, CPageFindings* findings);

  std::size_t Count() const { return parts_.size(); }
  /// Which is walked from now on.
  Part Enter(std::size_t number);
  /// Whether what is walked is VBScript or VB.NET.
  bool IsBasic() const { return basic_; }

  /// Text that is evaluated becomes a part, once.
  void Follow(const PageValue& value);
  /// Whether a part holds the text.
  bool AnyHolds(std::string_view text) const;
  /// Bytes of the page's first part.
  std::size_t FirstSize() const { return parts_[0].code.size(); }

 private:
  std::vector<Part> parts_;
  std::size_t room_;
  CPageFindings& findings_;
  bool basic_ = true;
  std::list<std::string> texts_;
  std::unordered_set<std::string_view> followed_;
};

}  // namespace qiv
