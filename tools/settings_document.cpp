#include "tools/settings_document.h"

#include <utility>
#include <vector>

#include "tools/settings_comments.h"
#include "tools/utf8_text.h"

namespace qiv {
namespace {

constexpr std::string_view kRecordEnd = "{#}";

bool IsScalar(const IJsonValue& value) { return value.Type() != JsonType::kObject && value.Type() != JsonType::kArray; }

std::unique_ptr<IJsonValue> ArrayOf(const std::vector<std::string_view>& items) {
  auto array = std::make_unique<JsonArray>();
  for (const std::string_view item : items) array->Append(std::make_unique<JsonString>(std::string(item)));
  return array;
}

bool IsList(KeyType type) { return KeySeparator(type) == "|" || KeySeparator(type) == ","; }

}  // namespace

std::unique_ptr<CSettingsDocument> CSettingsDocument::Parse(std::string text, CReport* report,
                                                            const SettingsFolder* folder) {
  JsonError error;
  auto document = std::make_unique<CSettingsDocument>();
  document->text_ = BlankComments(text, TrailingCommas::kBlank);
  std::vector<JsonDuplicate> duplicates;
  document->root_ = ParseJson(document->text_, &error, &duplicates);
  if (document->root_ == nullptr) {
    report->Error(JsonLine(document->text_, error.offset), error.message);
    return nullptr;
  }
  if (document->root_->AsObject() == nullptr) {
    report->Error(1, "the settings are no JSON object");
    return nullptr;
  }
  for (const JsonDuplicate& twice : duplicates) {
    report->Finding(JsonLine(document->text_, twice.second),
                    "\"" + twice.key + "\" was set on line " + std::to_string(JsonLine(document->text_, twice.first)) +
                        " already; what stands there is lost");
  }
  document->files_ = std::make_unique<CSettingsFiles>(document->text_, folder, report);
  document->files_->Resolve(static_cast<JsonObject*>(document->root_.get()));
  return document;
}

Place CSettingsDocument::Where(const IJsonValue& value) const { return files_->Where(value.Offset()); }

const IJsonValue* CSettingsDocument::Find(std::string_view section, std::string_view key) const {
  if (section.empty()) return Root().Find(key);
  const IJsonValue* const value = Root().Find(section);
  const JsonObject* const object = value == nullptr ? nullptr : value->AsObject();
  return object == nullptr ? nullptr : object->Find(key);
}

std::string CSettingsDocument::TextOf(std::string_view section, std::string_view key) const {
  const IJsonValue* const value = Find(section, key);
  const ConfigKey* const known = FindConfigKey(section, key);
  std::string text;
  if (value != nullptr) ValueText(*value, known == nullptr ? KeyType::kText : known->type, &text);
  return text;
}

bool ValueText(const IJsonValue& value, KeyType type, std::string* text) {
  if (IsScalar(value)) {
    *text = value.Text();
    return true;
  }
  const JsonArray* const array = value.AsArray();
  if (array == nullptr) return false;
  std::string joined;
  bool first = true;
  for (const std::unique_ptr<IJsonValue>& item : array->Items()) {
    if (!IsScalar(*item)) return false;
    const std::string part = item->Text();
    if (type == KeyType::kRules) {  // the separator ends each record
      joined += part;
      if (!part.ends_with(kRecordEnd)) joined += kRecordEnd;
      continue;
    }
    if (!first) joined += KeySeparator(type);
    joined += part;
    first = false;
  }
  *text = std::move(joined);
  return true;
}

std::unique_ptr<IJsonValue> ReadableValue(std::string_view text, KeyType type) {
  const std::string_view separator = KeySeparator(type);
  if (type == KeyType::kRules && text.ends_with(kRecordEnd)) {
    return ArrayOf(SplitUtf8(text.substr(0, text.size() - kRecordEnd.size()), separator));
  }
  if ((IsList(type) || type == KeyType::kText) && text.find(separator) != std::string_view::npos) {
    const std::vector<std::string_view> items = SplitUtf8(text, separator);
    bool has_empty = false;
    for (const std::string_view item : items) has_empty |= item.empty();
    // A list wrapped in its separator is easier to read as it is.
    if (!has_empty || type == KeyType::kText) return ArrayOf(items);
  }
  return std::make_unique<JsonString>(std::string(text));
}

std::unique_ptr<IJsonValue> CloneJson(const IJsonValue& value) { return ParseJson(WriteJson(value)); }

}  // namespace qiv
