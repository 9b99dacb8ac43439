#include "tools/file_judge.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <utility>

#include "checks/webshell_finding.h"
#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"
#include "engines/webshell/script_content.h"
#include "engines/webshell/signatures/signature_text.h"
#include "port/directory.h"
#include "port/file.h"
#include "port/module_path.h"
#include "port/system_error.h"
#include "tools/files.h"

namespace qiv {
namespace {

constexpr std::size_t kPiece = std::size_t{4} << 20;  // of a long file, read at once

/// Stands for a hole of any length in a sparse file; of even length, for texts of two bytes a character.
constexpr std::string_view kHole{"\0\0\0\0", 4};

/// Server code beyond it is no script that somebody wrote; judging it could take hours.
constexpr int kMostParts = 32;

using Cores = std::counting_semaphore<>;

class CHeldCore {
 public:
  explicit CHeldCore(Cores* cores) : cores_(cores) { cores_->acquire(); }
  ~CHeldCore() { cores_->release(); }
  CHeldCore(const CHeldCore&) = delete;
  CHeldCore& operator=(const CHeldCore&) = delete;

 private:
  Cores* const cores_;
};

CSignatureLibrary OwnRules(std::string_view library_text, std::string_view user_rules, std::string_view free_code) {
  CSignatureLibrary::Parts parts;
  for (const std::string_view list : {TaggedPart(library_text, "trojan_rules"), user_rules}) {
    for (SignatureRule& rule : ParseSignatureRules(list)) parts.rules.push_back(std::move(rule));
  }
  for (const std::string_view list : {TaggedPart(library_text, "trojan_free"), free_code}) {
    for (std::string& code : ParseSignatureTexts(list)) parts.free_code.push_back(std::move(code));
  }
  parts.whole_word = Trim(TaggedPart(library_text, "trojan_wholeword")) == "1";
  return CSignatureLibrary(std::move(parts));
}

bool IsNamedAsScript(const std::string& path) {
  const char separators[] = {'/', kPathSeparator, '\0'};
  const std::size_t name = path.find_last_of(separators);
  return ScriptLanguageOfName(std::string_view(path).substr(name + 1)) != ScriptLanguage::kNone;
}

bool IsByWordsAlone(const WebshellResult& found) {
  return found.finding == MessageId::kRiskCharacteristics || found.finding == MessageId::kDoubtful ||
         found.finding == MessageId::kSuspectedFiles;
}

}  // namespace

CFileJudge::CFileJudge(std::string_view library_text, std::string_view user_rules, std::string_view free_code)
    : libs_(library_text, user_rules, free_code), own_rules_(OwnRules(library_text, user_rules, free_code)) {}

FileVerdict CFileJudge::Judge(const std::string& path, Cores* cores, const std::atomic<bool>& stop) const {
  FileVerdict verdict;
  const bool is_named = IsNamedAsScript(path);
  std::string text;
  switch (ReadWholeFile(path, CQivLibs::kLongestText, &text)) {
    case ReadFileResult::kOk: {
      const CHeldCore core(cores);
      JudgeText(text, is_named, &verdict);
      break;
    }
    case ReadFileResult::kTooLarge:
      JudgeLong(path, is_named, cores, stop, &verdict);
      break;
    case ReadFileResult::kUnreadable:
      // What is no file any more has been moved away.
      const PathKind kind = PathKindOf(path);
      if (kind == PathKind::kFile || kind == PathKind::kUnknown) verdict.error = CannotRead(path);
      break;
  }
  return verdict;
}

// Shows the server code of one file to the detectors, in as many parts as it takes.
class CFileJudge::CCode {
 public:
  CCode(const CFileJudge& judge, bool is_named, Cores* cores, FileVerdict* verdict)
      : judge_(judge), is_named_(is_named), cores_(cores), verdict_(verdict) {}

  // False when no more needs to be read.
  bool Add(std::string_view piece) {
    bool wanted = false;
    for (CServerCode* const code : {&php_, &php_short_, &asp_}) wanted |= !verdict_->found && code->Add(piece);
    return wanted && !verdict_->found;
  }
  void End() {
    for (CServerCode* const code : {&php_, &php_short_, &asp_}) {
      if (!verdict_->found) code->End();
    }
  }

 private:
  bool OnPart(std::string_view part) {
    std::optional<CHeldCore> core;
    if (cores_ != nullptr) core.emplace(cores_);
    if (judge_.Scan(part, is_named_, verdict_)) return false;
    if (++parts_ < kMostParts) return true;
    verdict_->error = "holds more server code than can be judged: only its beginning was";
    return false;
  }

  const CFileJudge& judge_;
  const bool is_named_;
  Cores* const cores_;
  FileVerdict* const verdict_;
  int parts_ = 0;
  CServerCode php_{CodeFamily::kPhp, is_named_, [this](std::string_view part) { return OnPart(part); }};
  CServerCode php_short_{CodeFamily::kPhpShort, is_named_, [this](std::string_view part) { return OnPart(part); }};
  CServerCode asp_{CodeFamily::kAsp, is_named_, [this](std::string_view part) { return OnPart(part); }};
};

void CFileJudge::JudgeText(const std::string& text, bool is_named, FileVerdict* verdict) const {
  verdict->bytes = text.size();
  const bool is_wide = text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF");
  const bool holds_code = HoldsServerCode(text);
  if (is_named || (holds_code && is_wide)) {
    const TextPlace& place = verdict->finding.place;
    if (Scan(text, is_named, verdict) && !verdict->excerpt.empty()) {
      const auto begin = text.begin() + static_cast<std::ptrdiff_t>(place.offset);
      verdict->line = static_cast<std::size_t>(std::count(text.begin(), begin, '\n')) + 1;
    }
  } else if (holds_code) {
    CCode code(*this, false, nullptr, verdict);
    if (code.Add(text)) code.End();
  }
  if (!is_named && !verdict->found && !own_rules_.Rules().empty()) {
    const std::string copy = BlankFreeLower(CCharSet::ToLocal(text));
    if (const SignatureRule* const rule = own_rules_.Find(copy, text.size()).rule) {
      verdict->found = true;
      verdict->finding = WebshellResult::OfRule(*rule);
    }
  }
}

bool CFileJudge::Scan(std::string_view text, bool is_named, FileVerdict* verdict) const {
  verdict->judged = true;
  WebshellResult finding;
  if (!libs_.WebshellScan(text, &finding)) return false;
  // A document about scripts holds their words as well.
  if (!is_named && IsByWordsAlone(finding)) finding.suspicious = true;
  verdict->found = true;
  verdict->excerpt = WebshellExcerpt(finding, text);
  verdict->finding = std::move(finding);
  return true;
}

void CFileJudge::JudgeLong(const std::string& path, bool is_named, Cores* cores, const std::atomic<bool>& stop,
                           FileVerdict* verdict) const {
  verdict->code_alone = true;
  CCode code(*this, is_named, cores, verdict);
  // Not beyond the size at the beginning: a log may grow for ever.
  const std::uint64_t size = FileSize(path).value_or(0);
  std::string piece;
  FileRange data;
  for (std::uint64_t at = 0; !stop && at < size; at += piece.size()) {
    if (at >= data.end) {
      data = NextData(path, at);
      if (data.begin == data.end) break;
      if (data.begin > at && !code.Add(kHole)) return;
      at = data.begin;
    }
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, data.end - at));
    if (ReadFilePart(path, at, wanted, &piece) != ReadFileResult::kOk) {
      verdict->error = "cannot be read to its end: " + LastSystemError();
      break;
    }
    if (piece.empty()) break;  // it was cut short meanwhile
    verdict->bytes += piece.size();
    if (!code.Add(piece)) return;
  }
  if (!stop) code.End();
}

}  // namespace qiv
