// Each place is searched as a whole for anything that could be code, in the form the facts hold it in. Only if there is
// any, its values are decoded one by one and judged:
//   - code without a page around it, by itself (engines/webshell/request_code.h);
//   - a script ("<?", "<%"), and code that names the request ("$_"), by the detectors of webshell files.
// Values in base64 cannot be seen in the whole text: where enough of its letters stand in a row, what begins so is
// decoded, a few KiB of it.
#include "checks/webshell_check.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "checks/file_content.h"
#include "checks/request_values.h"
#include "checks/webshell_finding.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/website_config.h"
#include "engines/webshell/request_code.h"
#include "engines/webshell/script_content.h"
#include "engines/webshell/signatures/signature_rule.h"
#include "engines/webshell/webshell_scan.h"

namespace qiv {
namespace {

// All texts of one request are paid from one budget that its bytes earn: a byte that is searched for fragments costs
// one, a byte that the detectors of files look at, which takes them twice as long, two. Each byte may be looked at as a
// value, with its name, and in the body as a whole. What the budget does not reach is reported.
constexpr std::size_t kScanByte = 2;
constexpr std::size_t kVisits = 3;
constexpr std::size_t kBytesAnyway = 64 * 1024;
constexpr std::size_t kMostBytes = (1 + kScanByte) * CQivLibs::kLongestText;  // for the longest text that is scanned

// The detectors of files take some microseconds to begin, as long as for a hundred bytes, so there is a budget of
// scans too. Texts behind it are held against the signatures all the same. Telling ones have a second budget of their
// own, so that no mass of scripts that do nothing hides one; some hundred telling ones do, and are an event.
constexpr std::size_t kScansAnyway = 128;
constexpr std::size_t kTellingAnyway = 256;
constexpr std::size_t kBytesPerScan = 256;

constexpr std::size_t kLongestFragment = 64 * 1024;  // clients send some KiB; judged as if it stood in a page
constexpr std::size_t kEncodedBytes = 8 * 1024;      // of a value in base64, enough for where its script begins
constexpr std::size_t kEncodedScript = 256 * 1024;   // of one that begins like a script

constexpr std::size_t kShortestEncoded = 32;  // bytes as sent; nothing shorter is code that does harm

/// Whether the byte at `i` can be of base64, "+", "/" and "=" as "%2B", "%2F" and "%3D" in it.
bool IsEncodedByte(std::string_view raw, std::size_t i) {
  const char c = raw[i];
  if (IsWordByte(c) || c == '+' || c == '/' || c == '-') return true;
  if (c != '%' || i + 2 >= raw.size()) return false;
  const std::string code = CCharSet::LowerBytes(raw.substr(i + 1, 2));
  return code == "2b" || code == "2f" || code == "3d";
}

/// Whether kShortestEncoded such bytes stand in a row. Looks at one byte in many: from the end of each possible row.
bool HoldsEncoded(std::string_view raw) {
  std::size_t begin = 0;
  while (raw.size() - begin >= kShortestEncoded) {
    std::size_t end = begin + kShortestEncoded;
    while (end > begin && IsEncodedByte(raw, end - 1)) --end;
    if (end == begin) return true;
    begin = end;
  }
  return false;
}

/// Whether a script holds anything without which hardly any takes what a client sent and runs it, plainly or hidden: a
/// variable, a call, the request, code that is encoded.
bool IsTelling(std::string_view text) {
  static constexpr std::string_view kTelling[] = {"$",       "(",       "`",       "request", "eval",
                                                  "execute", "include", "require", "#@~^",    "codepage"};
  static constexpr auto kBegins = [] {
    std::array<bool, 256> begins{};
    for (const std::string_view word : kTelling) {
      const auto first = static_cast<unsigned char>(word[0]);
      begins[first] = true;
      if (IsLetter(word[0])) begins[first & ~0x20U] = true;
    }
    return begins;
  }();
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!kBegins[static_cast<unsigned char>(text[at])]) continue;
    const char first = LowerByte(text[at]);
    for (const std::string_view word : kTelling) {
      if (word[0] == first && EqualsIgnoreCase(text.substr(at, word.size()), word)) return true;
    }
  }
  return false;
}

bool BeginsEncoded(std::string_view raw) {
  for (std::size_t i = 0; i < kShortestEncoded; ++i) {
    if (i >= raw.size() || !IsEncodedByte(raw, i)) return false;
  }
  return true;
}

class CWebshellRun {
 public:
  CWebshellRun(const RequestFacts& facts, const CheckContext& context, CheckResult& result)
      : facts_(facts), context_(context), result_(result), site_(context.config), libs_(*context.webshells) {
    const std::size_t bytes = facts.raw_url.size() + facts.raw_body.size() + facts.all_headers.size();
    budget_ = std::min(kMostBytes, kBytesAnyway + kVisits * (1 + kScanByte) * bytes);
    scans_ += bytes / kBytesPerScan;
    telling_scans_ += bytes / kBytesPerScan;
  }

  void Run() {
    Search();
    if (partial_.empty() || result_.status == kBlocked) return;
    WebshellPlace place;
    place.place = partial_;
    RecordPartialScan(place, "webshell", facts_, context_);
  }

 private:
  void Search() {
    const BaseSettings& base = site_.base;
    const ValueVisitor visit = [this](const RequestValue& value) { return !Judge(value); };
    if (base.trojan_get != 0 && !facts_.query.empty()) {
      place_ = "GET";
      hints_ = CodeHints(facts_.query);
      if (IsWorthAWalk(facts_.raw_url) && !ForEachQueryValue(facts_, visit)) return;
    }
    if (base.trojan_get != 0 && site_.extended.path) {
      place_ = "GET";
      hints_ = CodeHints(facts_.path);
      if (IsWorthAWalk(facts_.raw_url) && !ForEachPathValue(facts_, visit)) return;
    }
    if (base.trojan_post && !facts_.raw_body.empty()) {
      place_ = "POST";
      const BodyForm form = BodyFormOf(facts_.content_type, facts_.raw_body);
      direct_ = form == BodyForm::kRaw || form == BodyForm::kXml;
      // Most of a multipart form are files, which are not this check's: its fields are looked at one by one.
      const bool multipart = form == BodyForm::kMultipart;
      scanned_ = result_.request.form_scanned && form != BodyForm::kForm && form != BodyForm::kJson;
      hints_ = multipart ? kHintCall : CodeHints(facts_.body);
      // Words can be written in escapes.
      const bool escaped = form == BodyForm::kJson && facts_.body.find("\\u00") != std::string_view::npos;
      if (escaped) hints_ |= kHintCall;
      // A script may begin like XML.
      if (form == BodyForm::kXml && hints_ != 0 && !visit({{}, facts_.raw_body, RequestValue::kPlain})) return;
      scanned_ = scanned_ && form != BodyForm::kXml;  // its values were not
      if ((multipart || IsWorthAWalk(facts_.raw_body)) &&
          !ForEachBodyValue(facts_.content_type, facts_.raw_body, visit))
        return;
    }
    if (base.trojan_header != 0) {
      place_ = "Header";
      direct_ = true;
      scanned_ = false;
      hints_ = kHintCall;  // too short to be looked at twice
      ForEachHeaderValue(facts_, visit);
    }
  }

  bool IsWorthAWalk(std::string_view raw) const { return hints_ != 0 || HoldsEncoded(raw); }

  /// True when the request was blocked.
  bool Judge(const RequestValue& value) {
    if (JudgeEncoded(value)) return true;
    return hints_ != 0 && JudgeText(value, value.Decoded(&room_));
  }

  bool JudgeText(const RequestValue& value, std::string_view text) {
    const std::uint32_t hints = CodeHints(text);
    if (hints == 0) return false;
    WebshellResult found;
    const bool strict = site_.base.trojan_strict_mode != 0;
    if (Spend(text.size())) {
      const FragmentStrength strength = AnalyseFragment(text, &found);
      // Nobody runs a command from a query, a header or a body that is no form; in a form people edit pages.
      const bool planted = (hints & kHintPhpTag) != 0 && direct_ && FindScript(text) != std::string_view::npos;
      const bool counts =
          strength == FragmentStrength::kStrong || (strength == FragmentStrength::kWeak && (strict || planted));
      if (counts && !libs_.Library().Find(BlankFreeLower(text), text.size()).known_good) return Block(value, found);
    }
    if (scanned_ && (hints & (kHintPhpTag | kHintPageTag)) != 0) return false;
    return Scan(text, hints, &found) && (strict || !found.suspicious) && Block(value, found, excerpt_);
  }

  /// By the detectors of files.
  bool Scan(std::string_view text, std::uint32_t hints, WebshellResult* found) {
    if ((hints & (kHintPhpTag | kHintPageTag)) != 0) {
      // In packed or random bytes the marks stand by chance.
      if (FindScript(text) == std::string_view::npos) return false;
      if (text.find('\0') == std::string_view::npos) return ScanText(text, found);
      bool hit = false;
      ForEachServerCode(text, [&](std::string_view part) { return !(hit = ScanText(part, found)); });
      return hit;
    }
    const bool worth = (hints & kHintSource) != 0 && text.size() <= kLongestFragment;
    if (!worth || text.find('\0') != std::string_view::npos) return false;
    // A text that was decoded is not held twice.
    std::string page = text.data() == room_.data() ? std::exchange(room_, {}) : std::string(text);
    page.reserve(page.size() + 8);
    page.insert(0, "<?php ") += ';';
    return ScanText(page, found);
  }

  bool ScanText(std::string_view text, WebshellResult* found) {
    if (text.size() > CQivLibs::kLongestText) partial_ = place_;
    text = text.substr(0, CQivLibs::kLongestText);
    const bool whole = TakeScan(text) && Spend(kScanByte * text.size());
    const bool hit =
        libs_.WebshellScan(text, whole ? CQivLibs::Depth::kWhole : CQivLibs::Depth::kSignatures, &walks_, found);
    if (found->partial) partial_ = place_;
    if (hit) excerpt_ = WebshellExcerpt(*found, text);
    return hit;
  }

  bool JudgeEncoded(const RequestValue& value) {
    if (!BeginsEncoded(value.raw)) return false;
    std::string room;
    std::string plain = DecodeEncodedText(value.Decoded(&room, kEncodedBytes), kEncodedBytes);
    const std::uint32_t hints = plain.empty() ? 0 : CodeHints(plain);
    if (hints == 0) return false;
    WebshellResult found;
    if ((hints & (kHintPhpTag | kHintPageTag)) == 0) {
      return Spend(plain.size()) && AnalyseFragment(plain, &found) == FragmentStrength::kStrong && Block(value, found);
    }
    plain = DecodeEncodedText(value.Decoded(&room, kEncodedScript), kEncodedScript);
    if (value.raw.size() > kEncodedScript) partial_ = place_;
    const bool strict = site_.base.trojan_strict_mode != 0;
    return Scan(plain, hints, &found) && (strict || !found.suspicious) && Block(value, found, excerpt_);
  }

  bool TakeScan(std::string_view text) {
    std::size_t& left = scans_ == 0 && IsTelling(text) ? telling_scans_ : scans_;
    if (left == 0) partial_ = place_;
    return left != 0 && left-- != 0;
  }

  bool Spend(std::size_t work) {
    if (work > budget_) {
      partial_ = place_;
      return false;
    }
    budget_ -= work;
    return true;
  }

  bool Block(const RequestValue& value, const WebshellResult& found, std::string_view excerpt = {}) {
    std::string room;
    WebshellPlace place;
    place.place = place_;
    room = CCharSet::ToLocal(std::string(RequestValue{{}, value.name, value.encoding}.Decoded(&room)));
    place.name = room;
    place.excerpt = excerpt;
    BlockWebshell(place, found, facts_, context_, result_);
    return true;
  }

  const RequestFacts& facts_;
  const CheckContext& context_;
  CheckResult& result_;
  const WebsiteConfig& site_;
  const CQivLibs& libs_;
  std::string_view place_;
  std::uint32_t hints_ = 0;  // of the place as a whole
  bool direct_ = true;       // nobody edits pages there
  bool scanned_ = false;     // the detectors of files have seen every value of the place as it is
  std::size_t budget_ = 0;
  std::size_t scans_ = kScansAnyway;
  std::size_t telling_scans_ = kTellingAnyway;
  CWalkBudget walks_{0};
  std::string_view partial_;  // the place of which not all was examined; empty: none
  std::string room_;
  std::string excerpt_;  // of what the detectors of files found last
};

}  // namespace

void WebshellCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  if (context.config.base.trojan == 0 || !context.webshells) return;
  CWebshellRun(facts, context, result).Run();
}

}  // namespace qiv
