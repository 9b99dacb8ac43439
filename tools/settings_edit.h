// Changes in a text of settings that leave everything else as it was written: comments, blanks, order, references.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "common/json.h"
#include "tools/report.h"
#include "tools/settings_files.h"

namespace qiv {

class CSettingsEdit {
 public:
  /// Null, with the error in *report, when the text is no JSON object.
  static std::unique_ptr<CSettingsEdit> Parse(std::string text, CReport* report);

  /// The values as they are written, references too.
  const JsonObject& Root() const { return *root_->AsObject(); }

  // At most one change of a value; `object` and `value` are parts of Root().
  void Replace(const IJsonValue& value, const IJsonValue& by);
  void Remove(const JsonObject& object, const std::string& key) { objects_[&object].removed.insert(key); }
  void Add(const JsonObject& object, const std::string& key, const IJsonValue& value);

  /// Sets a key of a section ("": of the top level), which are made when missing.
  void Set(const std::string& section, const std::string& key, const IJsonValue& value);

  std::string Text() const;

 private:
  struct Change {
    std::size_t end;  // of what goes
    std::string text;
  };

  struct ObjectChange {
    std::set<std::string> removed;
    std::string added;  // members, each on a line of its own
  };
  using Changes = std::map<std::size_t, Change>;  // by the beginning of what goes

  std::size_t Indent(const JsonObject& object) const;
  std::size_t SkipSpace(std::size_t at) const;
  std::size_t CommaBehind(const IJsonValue& value) const;
  void Remove(const IJsonValue& value, Changes* changes) const;
  void Finish(const JsonObject& object, const ObjectChange& change, Changes* changes) const;

  std::string text_;
  std::string plain_;  // without comments
  std::unique_ptr<IJsonValue> root_;
  Changes replaced_;
  std::map<const JsonObject*, ObjectChange> objects_;
};

/// `existing` settings changed so that they say what `unpacked` ones do (UnpackSettings): a key whose value is the same
/// stays as it is written, comments, references and unknown keys of the top level stay. Empty after an error.
std::string MergeSettings(const std::string& existing, const SettingsFolder& folder, const std::string& unpacked,
                          CReport* report);

}  // namespace qiv
