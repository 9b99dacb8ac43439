#include "tools/settings_files.h"

#include <algorithm>
#include <utility>

#include "common/char_set.h"
#include "common/ip_address.h"
#include "common/text.h"
#include "port/directory.h"
#include "port/module_path.h"
#include "tools/files.h"
#include "tools/rule_file.h"
#include "tools/settings_document.h"
#include "tools/utf8_text.h"

namespace qiv {
namespace {

constexpr std::string_view kRulesFolder = "rules/";
constexpr std::string_view kKeyWord = "key ";

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

bool IsAbsolute(std::string_view path) {
  return (!path.empty() && IsSeparator(path[0])) || (path.size() > 1 && path[1] == ':');
}

bool LeadsUp(const std::string& path) {
  return ("/" + ReplaceAll(path, "\\", "/") + "/").find("/../") != std::string::npos;
}

bool IsReference(std::string_view text) { return text.starts_with('@') && !text.starts_with("@@"); }

std::unique_ptr<IJsonValue> Text(std::string text, std::size_t offset) {
  auto value = std::make_unique<JsonString>(std::move(text));
  value->SetOffset(offset);
  return value;
}

bool IsIpSet(std::string_view name) {
  return std::any_of(IpSetKeys().begin(), IpSetKeys().end(), [name](const IpSetKey& key) { return key.name == name; });
}

bool IsKeyList(std::string_view name) {
  return std::any_of(IpSetKeys().begin(), IpSetKeys().end(),
                     [name](const IpSetKey& key) { return key.is_key_list && key.name == name; });
}

}  // namespace

SettingsFolder FolderOfSettings(const std::string& file) {
  const std::size_t end = file.find_last_of(kPathSeparator == '\\' ? "/\\" : "/");
  SettingsFolder folder;
  if (end != std::string::npos) folder.path = file.substr(0, end + 1);
  return folder;
}

bool TakesReferences(std::string_view section, std::string_view name) {
  if (section == "ip_sets") return IsIpSet(name);
  const ConfigKey* const key = FindConfigKey(section, name);
  if (key == nullptr) return false;
  switch (key->type) {
    case KeyType::kList:
    case KeyType::kAddresses:
    case KeyType::kNames:
    case KeyType::kExtensions:
    case KeyType::kRules:
      return true;
    case KeyType::kText:
      return name == "ret_content" || name == "js_out_codes";
    default:
      return false;
  }
}

std::unique_ptr<IJsonValue> EscapedReferences(std::unique_ptr<IJsonValue> value) {
  if (const JsonString* const text = value->AsString()) {
    return text->Value().starts_with('@') ? Text("@" + text->Value(), text->Offset()) : std::move(value);
  }
  if (value->AsArray() == nullptr) return value;
  auto array = std::make_unique<JsonArray>();
  for (const std::unique_ptr<IJsonValue>& item : value->AsArray()->Items()) {
    array->Append(item->Text().starts_with('@') ? Text("@" + item->Text(), 0) : CloneJson(*item));
  }
  return array;
}

CSettingsFiles::CSettingsFiles(const std::string& text, const SettingsFolder* folder, CReport* report)
    : text_(text), folder_(folder), report_(report), next_offset_(text.size() + 1) {}

void CSettingsFiles::Resolve(JsonObject* root) {
  language_ = root->GetText("language") == "zh-CN" ? Language::kChinese : Language::kEnglish;
  ResolveMembers(root, "");
}

void CSettingsFiles::ResolveMembers(JsonObject* object, std::string_view section) {
  for (const JsonObject::Member* const member : object->Members()) {
    const auto& [name, value] = *member;
    const bool holds_keys = section.empty() && (name == "website_other" || name == "ip_sets" ||
                                                std::ranges::count(ConfigSections(), std::string_view(name)) != 0);
    if (holds_keys && value->AsObject() != nullptr) {
      ResolveMembers(static_cast<JsonObject*>(value.get()), name);
      continue;
    }
    if (!TakesReferences(section, name)) continue;
    Form form = Form::kLines;
    if (section == "ip_sets") {
      form = IsKeyList(name) ? Form::kWords : Form::kAddresses;
    } else {
      const KeyType type = FindConfigKey(section, name)->type;
      if (type == KeyType::kRules && section == "website_sql") form = Form::kRules;
      if (type == KeyType::kAddresses) form = Form::kAddresses;
      if (type == KeyType::kText) form = Form::kText;
    }
    if (value->AsObject() != nullptr && section == "ip_sets") {
      auto* const families = static_cast<JsonObject*>(value.get());
      for (const JsonObject::Member* const family : families->Members()) {
        if (Value resolved = Resolved(*family->second, form)) families->Set(family->first, std::move(resolved));
      }
    } else if (Value resolved = Resolved(*value, form)) {
      object->Set(name, std::move(resolved));
    }
  }
}

/// Null when there is nothing to replace.
CSettingsFiles::Value CSettingsFiles::Resolved(const IJsonValue& value, Form form) {
  const auto begins = [](const IJsonValue& item) { return item.AsString() != nullptr && item.Text().starts_with('@'); };
  std::vector<Value> items;
  if (begins(value)) {
    Take(value, form, &items);
    const bool one =
        items.size() == 1 && (form == Form::kText || form == Form::kAddresses || !IsReference(value.Text()));
    if (one) return std::move(items.front());
  } else if (const JsonArray* const given = value.AsArray();
             given != nullptr &&
             std::ranges::any_of(given->Items(), [&](const Value& item) { return begins(*item); })) {
    for (const Value& item : given->Items()) {
      if (begins(*item)) {
        Take(*item, form, &items);
      } else {
        items.push_back(CloneJson(*item));
        items.back()->SetOffset(item->Offset());
      }
    }
  } else {
    return nullptr;
  }
  auto array = std::make_unique<JsonArray>();
  array->SetOffset(value.Offset());
  for (Value& item : items) array->Append(std::move(item));
  return array;
}

/// The items that a text beginning with "@" stands for.
void CSettingsFiles::Take(const IJsonValue& reference, Form form, std::vector<Value>* items) {
  const std::string written = reference.Text();
  if (!IsReference(written)) {
    items->push_back(Text(written.substr(1), reference.Offset()));
    return;
  }
  const char* const language = language_ == Language::kChinese ? "zh-CN" : "en-US";
  const std::size_t first = items->size();
  std::vector<std::string> names;
  if (!FilesOf(reference, ReplaceAll(written.substr(1), "{language}", language), &names)) return;
  for (const std::string& name : names) {
    const auto pending = folder_->pending.find(name);
    const std::string path = Located(name);
    std::string text;
    if (pending != folder_->pending.end()) {
      text = pending->second;
    } else if (!ReadInput(path, &text)) {
      report_->Error(Where(reference.Offset()), "\"" + written + "\": " + path + " " + CannotRead(path));
      continue;
    }
    TakeFile(path, text, form, items);
  }
  if (form != Form::kAddresses) return;
  // Addresses are divided by blanks: one text for all files of a folder.
  std::string ranges;
  for (std::size_t i = first; i < items->size(); ++i)
    AppendAll(&ranges, {ranges.empty() ? "" : " ", (*items)[i]->Text()});
  items->resize(first);
  items->push_back(Text(std::move(ranges), reference.Offset()));
}

/// The files of a reference, by the names that it gives them; false after an error.
bool CSettingsFiles::FilesOf(const IJsonValue& reference, std::string name, std::vector<std::string>* names) {
  const auto fail = [&](const std::string& message) {
    report_->Error(Where(reference.Offset()),
                   "\"" + reference.Text() + "\" " + message + "; a text that begins with \"@\" is written \"@@\"");
    return false;
  };
  if (folder_ == nullptr) return fail("names a file, which cannot be looked up here");
  if (name.empty()) return fail("names no file");
  if (!IsAbsolute(name) && LeadsUp(name)) {
    return fail("leads out of the settings' folder: a file elsewhere is named by its whole path");
  }
  if (!IsSeparator(name.back())) {
    names->push_back(std::move(name));
    return true;
  }
  std::vector<DirectoryEntry> entries;
  DirectoryIdentity identity;
  if (!ListDirectory(Located(name), &entries, &identity)) return fail("names a folder that cannot be read");
  for (const DirectoryEntry& entry : entries) {
    if (entry.name.ends_with(".txt")) names->push_back(name + entry.name);
  }
  std::sort(names->begin(), names->end());
  return !names->empty() || fail("names a folder without a *.txt file");
}

std::string CSettingsFiles::Located(const std::string& name) const {
  if (IsAbsolute(name)) return name;
  if (name.starts_with(kRulesFolder) && !folder_->rules.empty()) {
    return folder_->rules + "/" + name.substr(kRulesFolder.size());
  }
  const bool closed = folder_->path.empty() || IsSeparator(folder_->path.back());
  return folder_->path + (closed ? "" : "/") + name;
}

void CSettingsFiles::TakeFile(const std::string& path, const std::string& text, Form form, std::vector<Value>* items) {
  sources_.push_back({next_offset_, path});
  next_offset_ += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 2;
  CReport report(path);
  if (form == Form::kText) {
    const std::string_view content = std::string_view(text).substr(text.starts_with("\xEF\xBB\xBF") ? 3 : 0);
    if (!CCharSet::IsValidUtf8(content)) report.Error(0, "is no valid UTF-8");
    items->push_back(Item(std::string(content), 0));
  } else if (form == Form::kRules) {
    const RecordForm record{language_, '*', true};
    for (const RuleLine& rule : ReadRuleFile(text, &report)) {
      items->push_back(Item(LibraryRecord(rule, record, &report), rule.line));
    }
  } else {
    TakeLines(text, form, &report, items);
  }
  report_->Add(report);
}

void CSettingsFiles::TakeLines(const std::string& text, Form form, CReport* report, std::vector<Value>* items) {
  std::size_t number = 0;
  for (const std::string_view written : SplitUtf8(text, "\n")) {
    const std::string_view line =
        Trim(++number == 1 && written.starts_with("\xEF\xBB\xBF") ? written.substr(3) : written);
    if (line.empty() || line.front() == '#') continue;
    const bool is_key = line.starts_with(kKeyWord);
    if (!CCharSet::IsValidUtf8(line)) {
      report->Error(number, "the line is no valid UTF-8");
    } else if (form == Form::kLines) {
      items->push_back(Item(std::string(line), number));
    } else if (!is_key && !ParseIpRange(line)) {
      report->Error(number, "is neither an address range nor \"key WORD\": " + std::string(line));
    } else if (form == Form::kWords && is_key) {
      items->push_back(Item(std::string(Trim(line.substr(kKeyWord.size()))), number));
    } else if (form == Form::kAddresses && !is_key) {
      items->push_back(Item(std::string(line), number));
    }
  }
}

/// A text from a line of the file at hand.
CSettingsFiles::Value CSettingsFiles::Item(std::string text, std::size_t line) const {
  return Text(std::move(text), sources_.back().begin + line);
}

Place CSettingsFiles::Where(std::size_t offset) const {
  if (offset <= text_.size()) return {"", JsonLine(text_, offset)};
  const auto behind = std::upper_bound(sources_.begin(), sources_.end(), offset,
                                       [](std::size_t at, const Source& source) { return at < source.begin; });
  const Source& source = *std::prev(behind);
  return {source.path, offset - source.begin};
}

}  // namespace qiv
