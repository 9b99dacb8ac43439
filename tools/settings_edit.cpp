#include "tools/settings_edit.h"

#include <algorithm>
#include <utility>

#include "common/text.h"
#include "tools/settings_comments.h"
#include "tools/settings_document.h"

namespace qiv {
namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

/// Behind the value that begins at `begin` of a text that is JSON.
std::size_t EndOfValue(std::string_view text, std::size_t begin) {
  std::size_t depth = 0;
  for (std::size_t i = begin; i < text.size();) {
    const char c = text[i];
    if (c == '"') {
      i = EndOfString(text, i);
      if (depth == 0) return i;
      continue;
    }
    const bool closes = c == '}' || c == ']';
    if (depth == 0 && (closes || c == ',' || IsSpace(c))) return i;
    if (c == '{' || c == '[') ++depth;
    if (closes && --depth == 0) return i + 1;
    ++i;
  }
  return text.size();
}

/// The beginning of the key in front of the value at `value`: its opening quote.
std::size_t BeginOfKey(std::string_view text, std::size_t value) {
  std::size_t quote = text.rfind('"', text.rfind(':', value - 1));
  const auto is_escaped = [text](std::size_t at) {
    std::size_t slashes = 0;
    while (slashes < at && text[at - 1 - slashes] == '\\') ++slashes;
    return slashes % 2 == 1;
  };
  do {
    quote = text.rfind('"', quote - 1);
  } while (is_escaped(quote));
  return quote;
}

/// As it stands behind a key on a line that is indented by `indent` blanks.
std::string Written(const IJsonValue& value, std::size_t indent) {
  return ReplaceAll(WriteJson(value, 2), "\n", "\n" + std::string(indent, ' '));
}

std::string QuotedKey(const std::string& key) {
  std::string quoted;
  AppendJsonString(key, &quoted);
  return quoted;
}

/// What two values that are packed alike have in common.
std::string PackedForm(const IJsonValue& value, KeyType type) {
  std::string form;
  const JsonObject* const object = value.AsObject();
  if (object == nullptr) return ValueText(value, type, &form) ? form : WriteJson(value);
  for (const JsonObject::Member* const member : object->Members()) {
    AppendAll(&form, {member->first, "\n", PackedForm(*member->second, type), "\n"});
  }
  return form;
}

bool HoldsKeys(std::string_view name) {
  return name == "website_other" || name == "ip_sets" || std::ranges::count(ConfigSections(), name) != 0;
}

class CMerger {
 public:
  CMerger(CSettingsEdit* edit, const CSettingsDocument& existing, const CSettingsDocument& wanted,
          const JsonObject& written)
      : edit_(*edit), existing_(existing), wanted_(wanted), written_(written) {}

  void Run() {
    for (const JsonObject::Member* const member : written_.Members()) {
      const auto& [name, value] = *member;
      const IJsonValue* const here = edit_.Root().Find(name);
      if (here != nullptr && here->AsObject() != nullptr && value->AsObject() != nullptr && HoldsKeys(name)) {
        Members(name, *here->AsObject(), *value->AsObject());
      } else {
        Member("", edit_.Root(), name, *value);
      }
    }
    for (const JsonObject::Member* const member : edit_.Root().Members()) {
      const std::string& name = member->first;
      const bool known = FindConfigKey("", name) != nullptr || HoldsKeys(name) || name == "system_common_areas";
      if (known && written_.Find(name) == nullptr) edit_.Remove(edit_.Root(), name);
    }
  }

 private:
  void Members(const std::string& section, const JsonObject& here, const JsonObject& wanted) {
    for (const JsonObject::Member* const member : wanted.Members())
      Member(section, here, member->first, *member->second);
    for (const JsonObject::Member* const member : here.Members()) {
      if (wanted.Find(member->first) == nullptr) edit_.Remove(here, member->first);
    }
  }

  void Member(const std::string& section, const JsonObject& object, const std::string& name, const IJsonValue& value) {
    const IJsonValue* const here = object.Find(name);
    if (here == nullptr) return edit_.Add(object, name, value);
    const ConfigKey* const key = FindConfigKey(section, name);
    const KeyType type = key == nullptr ? KeyType::kList : key->type;
    const bool same =
        PackedForm(*existing_.Find(section, name), type) == PackedForm(*wanted_.Find(section, name), type);
    if (!same) edit_.Replace(*here, value);
  }

  CSettingsEdit& edit_;
  const CSettingsDocument& existing_;
  const CSettingsDocument& wanted_;
  const JsonObject& written_;
};

}  // namespace

std::unique_ptr<CSettingsEdit> CSettingsEdit::Parse(std::string text, CReport* report) {
  JsonError error;
  auto edit = std::make_unique<CSettingsEdit>();
  edit->text_ = std::move(text);
  edit->plain_ = BlankComments(edit->text_, TrailingCommas::kKeep);
  edit->root_ = ParseJson(BlankComments(edit->text_, TrailingCommas::kBlank), &error);
  if (edit->root_ != nullptr && edit->root_->AsObject() != nullptr) return edit;
  const std::string message = edit->root_ == nullptr ? error.message : "the settings are no JSON object";
  report->Error(JsonLine(edit->text_, error.offset), message);
  return nullptr;
}

void CSettingsEdit::Replace(const IJsonValue& value, const IJsonValue& by) {
  const std::size_t begin = value.Offset();
  const std::size_t line = plain_.rfind('\n', begin) + 1;  // 0 on the first line
  const std::size_t indent = std::min(plain_.find_first_not_of(' ', line), begin) - line;
  replaced_[begin] = {EndOfValue(plain_, begin), Written(by, indent)};
}

void CSettingsEdit::Add(const JsonObject& object, const std::string& key, const IJsonValue& value) {
  const std::size_t indent = Indent(object);
  std::string& added = objects_[&object].added;
  AppendAll(&added,
            {added.empty() ? "" : ",", "\n", std::string(indent, ' '), QuotedKey(key), ": ", Written(value, indent)});
}

void CSettingsEdit::Set(const std::string& section, const std::string& key, const IJsonValue& value) {
  const IJsonValue* const found = section.empty() ? root_.get() : Root().Find(section);
  const JsonObject* const object = found == nullptr ? nullptr : found->AsObject();
  if (object != nullptr) {
    const IJsonValue* const here = object->Find(key);
    return here == nullptr ? Add(*object, key, value) : Replace(*here, value);
  }
  JsonObject made;
  made.Set(key, CloneJson(value));
  return found == nullptr ? Add(Root(), section, made) : Replace(*found, made);
}

std::string CSettingsEdit::Text() const {
  Changes changes = replaced_;
  for (const auto& [object, change] : objects_) Finish(*object, change, &changes);
  std::string text;
  std::size_t at = 0;
  for (const auto& [begin, change] : changes) {
    if (begin < at) continue;  // goes with what stands around it
    text.append(text_, at, begin - at).append(change.text);
    at = change.end;
  }
  return text.append(text_, at, std::string::npos);
}

/// A member with its key, and the line when nothing but the key began on it.
void CSettingsEdit::Remove(const IJsonValue& value, Changes* changes) const {
  std::size_t begin = BeginOfKey(plain_, value.Offset());
  if (const std::size_t comma = CommaBehind(value); comma != plain_.size()) (*changes)[comma] = {comma + 1, ""};
  const std::size_t before = text_.find_last_not_of(" \t", begin - 1);
  if (text_[before] == '\n') begin = before;
  (*changes)[begin] = {EndOfValue(plain_, value.Offset()), ""};
}

void CSettingsEdit::Finish(const JsonObject& object, const ObjectChange& change, Changes* changes) const {
  const IJsonValue* last = nullptr;  // of those that stay, and of all
  const IJsonValue* last_of_all = nullptr;
  for (const JsonObject::Member* const member : object.Members()) {
    const IJsonValue* const value = member->second.get();
    const bool stays = !change.removed.contains(member->first);
    if (!stays) Remove(*value, changes);
    if (stays && (last == nullptr || value->Offset() > last->Offset())) last = value;
    if (last_of_all == nullptr || value->Offset() > last_of_all->Offset()) last_of_all = value;
  }
  const auto insert = [changes](std::size_t at, const std::string& text) {
    changes->try_emplace(at, Change{at, ""}).first->second.text += text;
  };
  if (last == nullptr) {
    const std::size_t begin = object.Offset() + 1;
    const std::size_t next = SkipSpace(begin);
    const bool on_one_line = plain_[next] == '}' && text_.find('\n', begin) > next;
    if (!change.added.empty())
      insert(begin, change.added + (on_one_line ? "\n" + std::string(Indent(object) - 2, ' ') : ""));
    return;
  }
  const std::size_t comma = CommaBehind(*last);
  const bool has_comma = comma != plain_.size();
  if (change.added.empty()) {
    if (has_comma && last != last_of_all) (*changes)[comma] = {comma + 1, ""};
    return;
  }
  // Behind a comment on the line of the last member, which is about that.
  const std::size_t end = has_comma ? comma + 1 : EndOfValue(plain_, last->Offset());
  const std::size_t line_end = std::min(text_.find('\n', end), text_.size());
  const bool line_ends = SkipSpace(end) >= line_end;
  if (!has_comma) insert(end, ",");
  insert(line_ends ? line_end : end, change.added);
}

std::size_t CSettingsEdit::CommaBehind(const IJsonValue& value) const {
  const std::size_t at = SkipSpace(EndOfValue(plain_, value.Offset()));
  return at < plain_.size() && plain_[at] == ',' ? at : plain_.size();
}

/// Of the members of an object.
std::size_t CSettingsEdit::Indent(const JsonObject& object) const {
  const std::size_t at =
      object.Size() == 0 ? object.Offset() : BeginOfKey(plain_, object.Members().front()->second->Offset());
  const std::size_t line = plain_.rfind('\n', at) + 1;
  const std::size_t blanks = std::min(plain_.find_first_not_of(' ', line), at) - line;
  return object.Size() == 0 || line + blanks != at ? blanks + 2 : blanks;
}

std::size_t CSettingsEdit::SkipSpace(std::size_t at) const {
  return std::min(plain_.find_first_not_of(" \t\r\n", at), plain_.size());
}

std::string MergeSettings(const std::string& existing, const SettingsFolder& folder, const std::string& unpacked,
                          CReport* report) {
  const std::unique_ptr<CSettingsDocument> here = CSettingsDocument::Parse(existing, report, &folder);
  const std::unique_ptr<CSettingsDocument> wanted = CSettingsDocument::Parse(unpacked, report);
  if (here == nullptr || wanted == nullptr || report->HasError()) return {};
  const std::unique_ptr<CSettingsEdit> edit = CSettingsEdit::Parse(existing, report);
  const std::unique_ptr<IJsonValue> written = ParseJson(unpacked);
  CMerger(edit.get(), *here, *wanted, *written->AsObject()).Run();
  return edit->Text();
}

}  // namespace qiv
