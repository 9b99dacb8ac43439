// What the words of a page's code mean: reading them, and calling them.
#pragma once

#include <string_view>
#include <vector>

#include "engines/webshell/page/findings.h"
#include "engines/webshell/page/frame.h"
#include "engines/webshell/page/functions.h"
#include "engines/webshell/page/layers.h"
#include "engines/webshell/page/names.h"
#include "engines/webshell/page/operators.h"
#include "engines/webshell/page/scopes.h"
#include "engines/webshell/page/sinks.h"
#include "engines/webshell/page/words.h"

namespace qiv {

/// Propagates taint through words, members and calls.
class CPageCalls {
 public:
  CPageCalls(bool aspx, CPageNames* names, CPageLayers* layers, CPageScopes* scopes, CPageFunctions* functions,
             CPageOperators* operators, CPageSinks* sinks, CPageFindings* findings)
      : aspx_(aspx),
        names_(*names),
        layers_(*layers),
        scopes_(*scopes),
        functions_(*functions),
        operators_(*operators),
        sinks_(*sinks),
        findings_(*findings) {}

  PageValue ReadWord(std::string_view word);
  PageValue ReadMember(std::string_view word, const PageValue& receiver);
  /// The call whose bracket is `frame`.
  PageValue Call(PageFrame* frame);
  /// The word's row in the table, if that is what it means here; else null.
  const PageWord* Find(std::string_view word, bool member) const;

 private:
  /// To be asked only where the answer decides something.
  bool IsAspx() const {
    findings_.DependOnKind();
    return aspx_;
  }
  PageValue CallUnknown(std::string_view callee, bool member, PageFrame* frame);
  PageValue Stored(std::string_view collection, const std::vector<PageValue>& arguments);
  bool AskFor(std::string_view callee, const PageFrame& frame, PageValue* result);
  bool PropagateElement(std::string_view callee, const PageFrame& frame, PageValue* result);
  std::string_view Element(std::string_view list, std::string_view index);

  const bool aspx_;
  CPageNames& names_;
  CPageLayers& layers_;
  CPageScopes& scopes_;
  CPageFunctions& functions_;
  CPageOperators& operators_;
  CPageSinks& sinks_;
  CPageFindings& findings_;
};

}  // namespace qiv
