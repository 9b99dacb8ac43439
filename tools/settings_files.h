// References in settings: a text "@FILE" stands for what is in the file, in the place of a value or of one item of an
// array. "@@" at the beginning of a text stands for "@".
//
// FILE is relative to the folder of the settings and does not leave it ("..": an error), or absolute. A FILE that ends
// in "/" is a folder: its *.txt files in the order of their names. "{language}" in FILE stands for the language of the
// settings. What a file holds depends on its key:
//
//   keyword rules                      a rule file (rule_file.h)
//   other records, lists               an item a line
//   addresses                          a range a line; lines "key ..." are passed over
//   keys of search engines             lines "key WORD"; ranges are passed over
//   ret_content, js_out_codes          the text as it is
//
// Empty lines and lines that begin with "#" say nothing, except in texts. Other keys' values take no references.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/json.h"
#include "common/language.h"
#include "config/config_keys.h"
#include "tools/report.h"

namespace qiv {

/// Where references lead.
struct SettingsFolder {
  std::string path;   ///< of the settings file; empty: the current folder
  std::string rules;  ///< what stands for rules/ in it; empty: that itself
  /// Files that are not written yet, by the names that references give them.
  std::map<std::string, std::string> pending = {};
};

/// The folder of a settings file; of standard input ("-") the current one.
SettingsFolder FolderOfSettings(const std::string& file);

/// Whether values of the key may be references.
bool TakesReferences(std::string_view section, std::string_view name);

/// The value as it is written where references are taken: its texts that begin with "@" get a second one.
std::unique_ptr<IJsonValue> EscapedReferences(std::unique_ptr<IJsonValue> value);

/// The files of one settings text.
class CSettingsFiles {
 public:
  /// `text` and `folder` must outlive Resolve, `text` this object. Without a folder each reference is an error.
  CSettingsFiles(const std::string& text, const SettingsFolder* folder, CReport* report);

  /// Puts the contents of files in the place of references. What cannot be read is an error in the report and left out.
  void Resolve(JsonObject* root);

  /// The place of a value by its Offset(): in the text, or in the file that it came from.
  Place Where(std::size_t offset) const;

 private:
  using Value = std::unique_ptr<IJsonValue>;
  struct Source {
    std::size_t begin;  // offset of what stands on no line; then one offset a line
    std::string path;
  };
  // What a file holds.
  enum class Form { kRules, kLines, kAddresses, kWords, kText };

  void ResolveMembers(JsonObject* object, std::string_view section);
  Value Resolved(const IJsonValue& value, Form form);
  void Take(const IJsonValue& reference, Form form, std::vector<Value>* items);
  void TakeFile(const std::string& path, const std::string& text, Form form, std::vector<Value>* items);
  void TakeLines(const std::string& text, Form form, CReport* report, std::vector<Value>* items);
  bool FilesOf(const IJsonValue& reference, std::string name, std::vector<std::string>* paths);
  std::string Located(const std::string& name) const;
  Value Item(std::string text, std::size_t line) const;

  const std::string& text_;
  const SettingsFolder* folder_;
  CReport* report_;
  Language language_ = Language::kEnglish;
  std::vector<Source> sources_;
  std::size_t next_offset_;
};

}  // namespace qiv
