// The readable settings: one JSON object that says what _config.db says (docs/file-formats.md).
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "common/json.h"
#include "config/config_keys.h"
#include "tools/report.h"
#include "tools/settings_files.h"

namespace qiv {

/// A settings text taken apart. Values keep their place in the text, or in the file that the text names for them.
class CSettingsDocument {
 public:
  /// Null, with the error in *report, when the text is no JSON object (comments and trailing commas aside). A finding
  /// for each key that is there twice. References to files are looked up in `folder`, and are errors without one; a
  /// file that is missing or faulty is an error in *report, and its entries are left out.
  static std::unique_ptr<CSettingsDocument> Parse(std::string text, CReport* report,
                                                  const SettingsFolder* folder = nullptr);

  /// With the contents of files in the place of references.
  const JsonObject& Root() const { return *root_->AsObject(); }
  Place Where(const IJsonValue& value) const;

  /// The value of a key: section "" is the top level. Null when it is missing.
  const IJsonValue* Find(std::string_view section, std::string_view key) const;
  /// Its text, as the module will see it; empty when it is missing or has no text.
  std::string TextOf(std::string_view section, std::string_view key) const;

 private:
  std::string text_;
  std::unique_ptr<IJsonValue> root_;
  std::unique_ptr<CSettingsFiles> files_;
};

/// The text of a value in the settings: a scalar's own, or the items of an array joined by the type's separator. False
/// for objects and for arrays that hold anything but scalars.
bool ValueText(const IJsonValue& value, KeyType type, std::string* text);

/// The reverse: an array where the separator divides the text into several items, else a string.
std::unique_ptr<IJsonValue> ReadableValue(std::string_view text, KeyType type);

/// A deep copy.
std::unique_ptr<IJsonValue> CloneJson(const IJsonValue& value);

/// The settings as the text of _config.db. Empty, with errors in *report, when they cannot be stored; a finding when
/// the module would refuse them.
std::string PackSettings(const CSettingsDocument& settings, CReport* report);

/// The text of _config.db as readable settings, with a line end. Empty, with errors in *report, when it holds none;
/// parts that are damaged are reported as findings and left out.
std::string UnpackSettings(std::string_view config_text, CReport* report);

}  // namespace qiv
