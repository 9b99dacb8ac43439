// The three XSS checks, each one pass over the text.
//
// Each check is described by looking at every occurrence of a name, and around it: back to the nearest "<", from there
// forward to white space, behind the name over white space and quotes. Taken literally that reads the same bytes again
// for every occurrence, and an attacker can write many names around one long run. So what was read is kept:
//  - Occurrences are taken in order of position. The nearest "<" before one, and whether white space lies between them,
//    follow from the last "<" and the last white space before it, which one scan that only moves forward keeps current.
//    The state of the attribute scan of the URL check belongs to the current "<" and goes on where it stopped.
//  - Behind a name, white space is skipped to a "=", and quotes and white space behind the "=". Two names may end in
//    the same run (names of a library may hold anything), so the last run of each kind is remembered: a skip that
//    enters it jumps to its end. A run of the first kind is thus read once. A run of the second kind begins behind a
//    "=" and holds none, so that no two of them overlap.
//  - A skip that begins before the remembered run of white space reads on from there at most as far as the names'
//    lengths differ.
//  - Only the winning occurrence's fragment is measured, at the end; a hit is replaced only by one of an earlier event.
// Every byte is therefore read a fixed number of times, whatever the text.
// Tested by tests/engines/injection/xss_detector_test.cpp: against the description taken literally, and by counting
// bytes read.
#include "engines/injection/xss_detector.h"

#include <algorithm>
#include <limits>

#include "common/text.h"
#include "engines/injection/xss_forms.h"
#include "engines/injection/xss_script.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kScript = "<script";
constexpr std::string_view kJavascript = "javascript:";

constexpr bool IsQuoteOrSpace(char c) { return c == '\'' || c == '"' || IsSpace(c); }
constexpr bool IsNameStart(char c) { return IsLetter(c) || c == '_'; }

// Skips bytes of one kind; remembers the furthest run it read.
class CRunSkipper {
 public:
  CRunSkipper(std::string_view text, bool (*is_in_run)(char)) : text_(text), is_in_run_(is_in_run) {}

  // First position at or after `pos` that is not in the run.
  std::size_t Skip(std::size_t pos) {
    const std::size_t from = pos;
    while (pos < text_.size()) {
      if (pos >= begin_ && pos < end_) {
        pos = end_;
        break;
      }
      ++work_;
      if (!is_in_run_(text_[pos])) break;
      ++pos;
    }
    if (pos > end_) {
      begin_ = from;
      end_ = pos;
    }
    return pos;
  }

  std::size_t Work() const { return work_; }

 private:
  std::string_view text_;
  bool (*is_in_run_)(char);
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::size_t work_ = 0;
};

// The tests around one occurrence of an event name. Occurrences come in order of position.
class CEventScan {
 public:
  // `in_tag`: an attribute behind the tag's ">" is none.
  CEventScan(std::string_view text, bool in_tag)
      : text_(text), in_tag_(in_tag), spaces_(text, IsSpace), quotes_(text, IsQuoteOrSpace) {}

  // Whether the name at [begin, end) is an attribute with a script-like value.
  bool IsHit(std::size_t begin, std::size_t end) {
    if (begin < kFirstPosition || !IsQuoteOrSpace(text_[begin - 1])) return false;
    if (end < text_.size() && IsWordByte(text_[end])) return false;
    for (; scanned_ < begin; ++scanned_) {
      if (text_[scanned_] == '<') tag_ = scanned_;
      if (text_[scanned_] == '>' && in_tag_) tag_ = kNone;
      if (IsSpace(text_[scanned_])) space_ = scanned_;
    }
    if (tag_ == kNone || !IsLetter(text_[tag_ + 1]) || space_ == kNone || space_ < tag_) return false;
    const std::size_t equals = spaces_.Skip(end);
    if (equals == text_.size() || text_[equals] != '=') return false;
    value_ = quotes_.Skip(equals + 1);
    return value_ < text_.size() && (text_[value_] == '/' || IsNameStart(text_[value_]));
  }

  std::size_t Tag() const { return tag_; }      // the "<" before the last hit
  std::size_t Value() const { return value_; }  // the value's first byte
  std::size_t Work() const { return scanned_ + spaces_.Work() + quotes_.Work(); }

 private:
  static constexpr std::size_t kFirstPosition = 3;  // "<a " comes before the first attribute

  std::string_view text_;
  bool in_tag_;
  std::size_t scanned_ = 0;  // tag_ and space_ are the last ones before it
  std::size_t tag_ = kNone;
  std::size_t space_ = kNone;
  std::size_t value_ = 0;
  CRunSkipper spaces_;
  CRunSkipper quotes_;
};

// How far the attribute before a "javascript:" has been read: tag name, white space, attribute name, "=".
class CAttributeScan {
 public:
  // `in_tag`: a URL behind the tag's ">" is in none.
  CAttributeScan(std::string_view text, bool in_tag) : text_(text), in_tag_(in_tag) {}

  // Whether the nearest "<" before `limit` is followed by a tag name, white space, and an attribute up to its "=", all
  // before `limit`. Limits must grow.
  bool HasAttribute(std::size_t limit) {
    const std::string_view next = text_.substr(scanned_, limit - scanned_);
    const std::size_t tag = next.rfind('<');
    if (tag != kNone) {
      tag_ = scanned_ + tag;
      pos_ = tag_ + 1;
      stage_ = IsNameStart(text_[pos_]) ? Stage::kTagName : Stage::kFailed;
    }
    if (in_tag_ && next.find('>', tag == kNone ? 0 : tag) != kNone) stage_ = Stage::kFailed;
    work_ += limit - scanned_;
    scanned_ = limit;
    const std::size_t from = pos_;
    Advance(limit);
    work_ += pos_ - from;
    return stage_ == Stage::kEquals;
  }

  std::size_t Tag() const { return tag_; }
  std::size_t Work() const { return work_; }

 private:
  enum class Stage { kFailed, kTagName, kGap, kAttribute, kEquals };

  void Advance(std::size_t limit) {
    if (stage_ == Stage::kTagName) {
      while (pos_ < limit && !IsSpace(text_[pos_])) ++pos_;
      if (pos_ < limit) stage_ = Stage::kGap;
    }
    if (stage_ == Stage::kGap) {
      while (pos_ < limit && IsSpace(text_[pos_])) ++pos_;
      if (pos_ < limit) stage_ = IsNameStart(text_[pos_]) ? Stage::kAttribute : Stage::kFailed;
    }
    if (stage_ == Stage::kAttribute) {
      while (pos_ < limit && text_[pos_] != '=') ++pos_;
      if (pos_ < limit) stage_ = Stage::kEquals;
    }
  }

  std::string_view text_;
  bool in_tag_;
  std::size_t scanned_ = 0;  // tag_ is the last "<" before it
  std::size_t tag_ = kNone;
  std::size_t pos_ = 0;
  Stage stage_ = Stage::kFailed;
  std::size_t work_ = 0;
};

void AddWork(std::size_t* work, std::size_t amount) {
  if (work != nullptr) *work += amount;
}

// The event check. `in_tag`: as for CEventScan.
std::string_view FindEvent(const JudgedText& judged, const InjectionLibrary& library, bool in_tag, std::size_t* work) {
  const std::string_view text = judged.lowered;
  const CMultiPattern& events = library.EventWords().Patterns();
  CWholeCharacters whole(library.EventWords(), judged.exact);
  CEventScan scan(text, in_tag);
  std::uint32_t best = std::numeric_limits<std::uint32_t>::max();
  std::size_t tag = kNone;
  std::size_t value = 0;
  events.FindByStart(text, [&](std::size_t start, const std::uint32_t* names, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
      if (names[i] >= best || !whole.Counts(names[i], start)) continue;
      if (!scan.IsHit(start, start + events.PatternLength(names[i]))) continue;
      best = names[i];
      tag = scan.Tag();
      value = scan.Value();
    }
    return best != 0;
  });
  AddWork(work, scan.Work());
  if (tag == kNone) return {};
  std::size_t end = value;
  while (text[value] != '/' && end < text.size() && !IsQuoteOrSpace(text[end]) && text[end] != '>') ++end;
  AddWork(work, end - value);
  return text.substr(tag, end - tag);
}

// The first bare script tag that counts, its ">" included; empty when there is none. `named`: one that is only named in
// quotes does not.
std::string_view FindScriptTag(std::string_view text, bool named, std::size_t* work) {
  CNamedTags names(text);
  for (std::size_t tag = text.find(kScript); tag != kNone;) {
    const std::size_t begin = tag + kScript.size();
    std::size_t pos = begin;
    while (pos < text.size() && IsSpace(text[pos])) ++pos;
    AddWork(work, pos - begin + 1);
    if (pos == text.size()) break;
    if (text[pos] == '>' && !(named && names.IsNamed(tag, pos + 1))) return text.substr(tag, pos + 1 - tag);
    tag = text.find(kScript, pos);
  }
  return {};
}

std::string_view FindJavascriptUrl(std::string_view text, bool in_tag, std::size_t* work) {
  CAttributeScan scan(text, in_tag);
  for (std::size_t pos = text.find(kJavascript); pos != kNone; pos = text.find(kJavascript, pos)) {
    const std::size_t begin = pos;
    pos += kJavascript.size();
    if (pos == text.size()) break;
    if ((text[pos] != '/' && !IsNameStart(text[pos])) || !scan.HasAttribute(begin)) continue;
    std::size_t end = pos;
    while (end < text.size() && !IsSpace(text[end])) ++end;
    AddWork(work, scan.Work() + end - pos);
    return text.substr(scan.Tag(), end - scan.Tag());
  }
  AddWork(work, scan.Work());
  return {};
}

}  // namespace

std::string_view XssDetector::EventCheck(const JudgedText& judged, const InjectionLibrary& library, std::size_t* work) {
  return FindEvent(judged, library, false, work);
}

std::string_view XssDetector::ScriptTagCheck(std::string_view text, std::size_t* work) {
  return FindScriptTag(text, false, work).empty() ? std::string_view() : kScriptFragment;
}

std::string_view XssDetector::JavascriptUrlCheck(std::string_view text, std::size_t* work) {
  return FindJavascriptUrl(text, false, work);
}

namespace {

bool IsAnyOn(const InjectionSettings& settings) {
  return settings.xss_html_action != 0 || settings.xss_script_block != 0 || settings.xss_script_load != 0;
}

// `text` without "+". Where values are read as browsers read them, the checks by name leave to that what they cannot
// tell: a script tag that is only named, an event behind the end of a tag.
XssType CheckBlanked(const JudgedText& text, const InjectionSettings& settings, const InjectionLibrary& library,
                     TextPlace* fragment, bool per_parameter) {
  const auto examine = [&](const JudgedText& value) {
    const auto found = [&](std::string_view part) {
      if (!part.empty()) *fragment = PlaceOf(part, text.lowered);
      return !part.empty();
    };
    const bool forms = settings.xss_form != 0;
    if (settings.xss_html_action != 0 && found(FindEvent(value, library, forms, nullptr))) return XssType::kHtmlEvent;
    if (settings.xss_script_block != 0 && found(FindScriptTag(value.lowered, forms, nullptr)))
      return XssType::kScriptTag;
    if (settings.xss_script_load != 0 && found(FindJavascriptUrl(value.lowered, forms, nullptr))) {
      return XssType::kScriptLoading;
    }
    return XssType::kNone;
  };
  if (!per_parameter) return examine(text);
  XssType type = XssType::kNone;
  ForEachParameter(text.lowered, [&](const Parameter& parameter) {
    type = examine(text.Part(PlaceOf(parameter.value, text.lowered)));
    return type == XssType::kNone;
  });
  return type;
}

}  // namespace

XssType XssDetector::TagCheck(const JudgedText& text, const InjectionSettings& settings,
                              const InjectionLibrary& library, TextPlace* fragment, bool per_parameter) {
  if (!IsAnyOn(settings) || text.lowered.find('<') == kNone) return XssType::kNone;  // each of the three needs one
  if (text.lowered.find('+') == kNone) return CheckBlanked(text, settings, library, fragment, per_parameter);
  std::string copy(text.lowered);
  std::replace(copy.begin(), copy.end(), '+', ' ');
  return CheckBlanked({copy, text.exact}, settings, library, fragment, per_parameter);
}

XssType XssDetector::FormCheck(std::string_view value, const InjectionSettings& settings,
                               const InjectionLibrary& library, TextPlace* fragment) {
  if (!IsAnyOn(settings) || settings.xss_form == 0) return XssType::kNone;
  const XssFinding found = FindXssForm(
      value, library, {settings.xss_html_action != 0, settings.xss_script_block != 0, settings.xss_script_load != 0});
  if (found.type == XssType::kNone) return XssType::kNone;
  *fragment = {found.begin, found.end - found.begin};
  return found.type;
}

XssType XssDetector::CheckText(const JudgedText& text, const InjectionSettings& settings,
                               const InjectionLibrary& library, TextPlace* fragment, bool per_parameter) {
  XssType type = TagCheck(text, settings, library, fragment, per_parameter);
  if (type != XssType::kNone || settings.xss_form == 0) return type;
  if (!per_parameter) return FormCheck(text.lowered, settings, library, fragment);
  ForEachParameter(text.lowered, [&](const Parameter& parameter) {
    const std::string_view name = parameter.name;
    // "?<svg onload=...": a site that prints its whole query prints the name too. Names of parts lie elsewhere.
    const bool joined = name.find_first_of("<\"'") != kNone && name.data() + name.size() + 1 == parameter.value.data();
    const std::string_view value =
        joined ? std::string_view(name.data(), name.size() + 1 + parameter.value.size()) : parameter.value;
    type = FormCheck(value, settings, library, fragment);
    if (type != XssType::kNone) fragment->offset += PlaceOf(value, text.lowered).offset;
    return type == XssType::kNone;
  });
  return type;
}

}  // namespace qiv
