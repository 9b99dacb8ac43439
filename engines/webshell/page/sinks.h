// The sinks of a page: what runs code or programs, creates objects, reads and writes files, connects to databases, and
// which values may not get there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engines/webshell/page/findings.h"
#include "engines/webshell/page/frame.h"
#include "engines/webshell/page/layers.h"
#include "engines/webshell/page/operators.h"
#include "engines/webshell/page/scopes.h"
#include "engines/webshell/page/words.h"

namespace qiv {

class CPageSinks {
 public:
  /// `service`: clients call the page's functions.
  CPageSinks(bool service, CPageLayers* layers, CPageScopes* scopes, CPageOperators* operators, CPageFindings* findings)
      : service_(service), layers_(*layers), scopes_(*scopes), operators_(*operators), findings_(*findings) {}

  /// Before each pass.
  void Restart() { opaque_ = 0; }

  /// What the call of the word does with what it is given, and gives.
  PageValue Act(const PageWord& word, PageFrame* frame);
  /// The value is evaluated by `word`.
  void RunCode(const PageValue& value, std::string_view word);
  /// A server or a statement that the request names, by what it is handed to.
  void Connect(std::string_view callee, const PageValue& value);
  /// What a method puts into its argument, or into its own object.
  void PassOn(std::string_view callee, const PageFrame& frame);
  /// Long texts without a blank that an object of another maker is to make sense of.
  void HandOpaque(std::string_view callee, const PageValue& value);

  /// A type or method is asked for by a name that is not written out.
  void AskByHiddenName() { ++hidden_names_; }
  /// The same by a name that is known.
  void AskByName(std::string_view name) { dangerous_name_ = dangerous_name_ || IsHot(name); }
  /// Style sheets may hold scripts.
  void TrustStyleSheets() { trusted_xslt_ = true; }

 private:
  PageValue Create(const std::vector<PageValue>& arguments);
  PageValue Read(const PageWord& word, const PageFrame& frame);
  void Load(const PageWord& word, const PageFrame& frame, std::uint32_t marks);
  void Invoke(const PageWord& word, const PageFrame& frame, std::uint32_t marks);
  bool Run(const PageWord& word, const PageFrame& frame, std::uint32_t marks);
  PageValue OpenFile(const PageWord& word, const PageFrame& frame);
  void WriteFile(const PageWord& word, const PageFrame& frame);
  void Path(const PageValue& path, std::string_view word);
  void WorkOut(const PageWord& word, PageFrame* frame, PageValue* result);

  const bool service_;
  CPageLayers& layers_;
  CPageScopes& scopes_;
  CPageOperators& operators_;
  CPageFindings& findings_;
  std::unordered_map<std::string_view, bool> written_;  // by part of an object's name: whether the code holds it
  bool shell_made_ = false;
  bool dangerous_name_ = false;   // a method that runs or loads is asked for by its name
  bool trusted_xslt_ = false;     // style sheets may hold scripts
  std::size_t hidden_names_ = 0;  // types and methods asked for by names that are not written out
  std::size_t opaque_ = 0;        // bytes of texts that only an object makes sense of, in this pass
};

}  // namespace qiv
