// Every part of a body is judged by what it says of itself (file names) and by what it is (content), whether it calls
// itself a file or not: applications save plain fields as files too.
//
// Content that holds no script text cannot be a webshell, and is not scanned. A picture that holds script text is
// refused as it is. Everything else is scanned up to the limits of the scanner (CQivLibs::kLongestText a text,
// kScannedScript a request). Beyond them padding must not help: what could be run where it is saved (a script's name,
// or no name that says otherwise) is refused, of other files the first 2 MiB from the first script text on are scanned.
#include "checks/upload_check.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include "checks/file_content.h"
#include "checks/upload_name.h"
#include "checks/webshell_finding.h"
#include "common/char_set.h"
#include "common/messages.h"
#include "common/multipart.h"
#include "common/text.h"
#include "config/website_config.h"
#include "engines/webshell/decoding/decoders.h"
#include "engines/webshell/script_content.h"
#include "engines/webshell/webshell_scan.h"

namespace qiv {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
// Of names and findings in the log, in bytes.
constexpr std::size_t kLongestShown = 100;

// What is scanned of a request: each byte of the body as a part's content and once more as its text or for the price of
// a part's scan, which its head and some 70 bytes of content earn. Beyond it, up to kScannedScript, it takes parts
// without heads.
constexpr std::size_t kScansPerByte = 2;
constexpr std::size_t kScannedAnyway = 64 * 1024;

constexpr std::string_view kUploadStatistics = "upload";
constexpr std::string_view kPhotoStatistics = "photo";

// One file, or one field of a form.
struct Item {
  std::string_view field;
  std::string_view file_name;  // as stated; the first one
  std::string_view content_type;
  bool is_file = false;  // it states a file name, or is a whole body
  bool image_name = false;
  bool script_name = false;  // or no extension that says otherwise
};

constexpr std::string_view kUtf32Little("\xFF\xFE\0\0", 4);
constexpr std::string_view kUtf32Big("\0\0\xFE\xFF", 4);

// The ASCII bytes of a text in UTF-16 or UTF-32, which its first bytes say; empty for other content.
std::string AsciiOfWide(std::string_view content) {
  std::string ascii;
  if (!content.starts_with("\xFF\xFE") && !content.starts_with("\xFE\xFF") && !content.starts_with(kUtf32Big))
    return ascii;
  std::copy_if(content.begin(), content.end(), std::back_inserter(ascii), [](char c) { return c > '\0' && c <= '~'; });
  return ascii;
}

bool IsDeclaredImage(std::string_view content_type) {
  constexpr std::string_view kTypes[] = {"image/jpeg", "image/jpg",  "image/pjpeg", "image/png",  "image/x-png",
                                         "image/gif",  "image/bmp",  "image/webp",  "image/tiff", "image/heic",
                                         "image/heif", "image/avif", "image/x-icon"};
  return std::any_of(std::begin(kTypes), std::end(kTypes),
                     [&](std::string_view type) { return BeginsNoCase(content_type, type); });
}

class CUploadRun {
 public:
  CUploadRun(const RequestFacts& facts, const CheckContext& context, CheckResult& result)
      : facts_(facts),
        context_(context),
        result_(result),
        base_(context.config.base),
        request_(context.config.request),
        scan_left_(std::min(kScannedScript, kScannedAnyway + facts.raw_body.size() * kScansPerByte)) {}

  void Run() {
    Search();
    result_.request.form_scanned =
        taken_ && base_.upload && base_.upload_file && !unscanned_ && result_.status == kUndecided;
    if (!partial_ || result_.status == kBlocked) return;
    RecordPartialScan({"File", {}, MessageId::kUploadItem}, "upload", facts_, context_);
  }

 private:
  void Search() {
    const bool photo = request_.photo != 0;
    // The query as sent: the normalised one may be in lower case, which is another picture.
    if (photo && request_.photo_get != 0 && CheckEmbeddedImages(facts_.raw_url, "GET")) return;
    if (facts_.raw_body.empty() || (!base_.upload && !(photo && request_.photo_post))) return;
    if (IsMultipartBody(facts_.content_type, facts_.raw_body)) {
      CheckForm();
    } else if (facts_.method == "PUT" && context_.config.extended.body) {
      CheckPut();
    } else if (IsUploadBody(facts_)) {
      taken_ = true;
      Item item;
      item.content_type = facts_.content_type;
      item.is_file = true;
      item.script_name = true;
      item.image_name = IsDeclaredImage(facts_.content_type);
      CheckContent(item, facts_.raw_body);
    } else if (photo && request_.photo_post) {
      CheckEmbeddedImages(facts_.raw_body, "POST");
    }
  }

  /// The path says where the body is to be saved. What calls itself data of an application and holds no script may be
  /// sent to a script: its name is not looked at.
  void CheckPut() {
    taken_ = true;
    std::string_view path = std::string_view(facts_.raw_url).substr(0, facts_.raw_url.find('?'));
    path.remove_prefix(path.rfind('/') + 1);
    Item item;
    item.content_type = facts_.content_type;
    item.is_file = true;
    item.file_name = path;
    item.image_name = IsDeclaredImage(facts_.content_type);
    const bool saved = IsUploadBody(facts_) || FindScript(facts_.raw_body) != kNone;
    if (saved && !path.empty() && CheckName(&item, facts_.raw_body)) return;
    CheckContent(item, facts_.raw_body);
  }

  void CheckForm() {
    taken_ = true;
    const MultipartFault fault =
        ForEachPart(facts_.content_type, facts_.raw_body, [&](const MultipartPart& part) { return !CheckPart(part); });
    if (fault != MultipartFault::kNone && result_.status == kUndecided && base_.upload) {
      Block(Item{}, MessageId::kUploadMalformed, std::to_string(static_cast<int>(fault)));
    }
  }

  // This and the following return true when they blocked.
  bool CheckPart(const MultipartPart& part) {
    Item item;
    item.field = part.head.name;
    item.content_type = part.head.content_type;
    item.is_file = part.head.has_file_name;
    item.script_name = part.head.file_name_count == 0;
    item.image_name = IsDeclaredImage(part.head.content_type) && part.head.has_file_name;
    for (std::size_t i = 0; i < part.head.file_name_count; ++i) {
      item.file_name = part.head.file_names[i];
      if (CheckName(&item, part.text)) return true;
    }
    if (CheckContent(item, part.content)) return true;
    // Some parsers end the headers at a line that begins with NUL, or that is longer than their buffer.
    if (FindScript(part.head_text) != kNone && CheckContent(item, part.text)) return true;
    if (part.late_content.size() != part.content.size() && CheckContent(item, part.late_content)) return true;
    switch (part.head.encoding) {
      case PartHead::kBase64:
        return CheckContent(item, DecodeBase64(part.content));
      case PartHead::kQuotedPrintable:
        return CheckContent(item, DecodeQuotedPrintable(part.content));
      case PartHead::kPlain:
        break;
    }
    return !item.is_file && request_.photo != 0 && request_.photo_post && CheckEmbeddedImages(part.content, "POST");
  }

  bool CheckName(Item* item, std::string_view content) {
    const UploadName name = ReadUploadName(item->file_name);
    item->image_name = item->image_name || IsImageExtension(name.extension);
    item->script_name = item->script_name || name.extension.empty() || IsScriptExtension(name.extension);
    if (!base_.upload) return false;
    switch (name.fault) {
      case NameFault::kNone:
        break;
      case NameFault::kDisguised:
        return Block(*item, MessageId::kUploadDisguised, name.extension);
      case NameFault::kDoubleExtension:
        return Block(*item, MessageId::kUploadDoubleExtension, name.extension);
      case NameFault::kDevice:
        return Block(*item, MessageId::kUploadDevice, name.base);
      case NameFault::kTraversal:
        return Block(*item, MessageId::kUploadTraversal, "..");
      case NameFault::kControlByte:
        return Block(*item, MessageId::kUploadControlByte, name.extension);
      case NameFault::kTooLong:
        return Block(*item, MessageId::kUploadNameTooLong, std::to_string(item->file_name.size()));
    }
    if (!IsAdmittedExtension(name.extension, base_.upload_types)) {
      return Block(*item, MessageId::kUploadExtension, name.extension);
    }
    if (base_.upload_exe && IsExecutableExtension(name.extension)) {
      return Block(*item, MessageId::kUploadExecutable, name.extension);
    }
    return base_.upload_file && SwitchesOnScripts(name.base, content) &&
           Block(*item, MessageId::kUploadServerConfig, name.base, kWebshellStatistics);
  }

  bool CheckContent(const Item& item, std::string_view content) {
    if (content.empty()) return false;
    if (base_.upload && base_.upload_exe && IsExecutable(content) && (item.is_file || content.starts_with("MZ"))) {
      return Block(item, MessageId::kUploadExecutable, content.substr(0, content.starts_with("#!") ? 32 : 2));
    }
    if (CheckPhoto(item, content)) return true;
    return base_.upload && base_.upload_file && CheckScript(item, content);
  }

  bool CheckPhoto(const Item& item, std::string_view content) {
    if (request_.photo == 0 || !request_.photo_post || !item.image_name) return false;
    constexpr std::uint64_t kKiB = 1024;
    if (content.size() < request_.photo_min_size * kKiB) return false;
    if (request_.photo_max_size != 0 && content.size() > request_.photo_max_size * kKiB) return false;
    return !IsImage(content) && BlockPhoto(item);
  }

  bool CheckScript(const Item& item, std::string_view content) {
    std::size_t script = FindScript(content);
    std::string ascii;
    if (script == kNone) {
      ascii = AsciiOfWide(content);
      if (FindScript(ascii) == kNone) return false;
      if (content.starts_with(kUtf32Little) || content.starts_with(kUtf32Big)) content = ascii;
      script = 0;
    }
    if (item.image_name || BeginsLikeImage(content)) {
      const std::string_view found = content.substr(script, 64);
      return Block(item, MessageId::kUploadScriptInImage, found, kWebshellStatistics);
    }
    const bool named_script = item.script_name && !item.file_name.empty();
    if (!named_script && script != 0 && content.find('\0') != kNone) return ScanCode(item, content);
    if (content.size() <= CQivLibs::kLongestText && content.size() <= scan_left_) return Scan(item, content);
    if (item.script_name) {
      return Block(item, MessageId::kUploadScriptTooLong, std::to_string(content.size()), kWebshellStatistics);
    }
    partial_ = unscanned_ = true;
    return Scan(item, content.substr(script, std::min(CQivLibs::kLongestText, scan_left_)));
  }

  bool Scan(const Item& item, std::string_view content) {
    // A scan has a price of its own, or many small parts would cost more than one large one.
    constexpr std::size_t kPrice = 192;
    scan_left_ -= std::min(scan_left_, content.size() + kPrice);
    WebshellResult found;
    if (!context_.webshells) return false;
    const bool hit = context_.webshells->WebshellScan(content, &found);
    partial_ = partial_ || found.partial;
    if (!hit) return false;
    if (found.suspicious && base_.trojan_strict_mode == 0) return false;
    const std::string name = Shown(item);
    const std::string excerpt = WebshellExcerpt(found, content);
    BlockWebshell({"File", name, MessageId::kUploadItem, kWebshellStatistics, excerpt}, found, facts_, context_,
                  result_);
    return true;
  }

  /// Of binary files that are no scripts by name, the code that a server would run: the bytes between hold marks, calls
  /// and variables by chance.
  bool ScanCode(const Item& item, std::string_view content) {
    bool blocked = false;
    ForEachServerCode(content, [&](std::string_view part) {
      const bool fits = part.size() <= scan_left_;
      if (fits) {
        blocked = Scan(item, part);
      } else if (item.script_name) {
        blocked = Block(item, MessageId::kUploadScriptTooLong, std::to_string(part.size()), kWebshellStatistics);
      }
      unscanned_ = unscanned_ || !fits;
      partial_ = partial_ || !fits;
      return fits && !blocked;
    });
    return blocked;
  }

  /// Pictures in the text of a query or a body: "data:image/png;base64,...", percent-encoded perhaps.
  bool CheckEmbeddedImages(std::string_view text, std::string_view place) {
    constexpr std::string_view kData = "data:image/";
    std::string decoded;
    if (FindNoCase(text, "data%3aimage") != kNone || FindNoCase(text, "data:image%2f") != kNone) {
      decoded = PercentDecode(text);
      text = decoded;
    }
    for (std::size_t at = FindNoCase(text, kData); at != kNone; at = FindNoCase(text, kData, at)) {
      at += kData.size();
      constexpr std::size_t kLongestType = 64;
      constexpr std::string_view kBase64 = ";base64,";
      const std::size_t mark = FindNoCase(text.substr(at, kLongestType), kBase64);
      if (mark == kNone) continue;
      const std::size_t begin = at + mark + kBase64.size();
      std::size_t end = begin;
      // Prose: no picture's data begins with a blank, which is "+" in a form. Who decodes it passes over blanks, so it
      // may still hold a script.
      const bool prose = begin < text.size() && (IsSpace(text[begin]) || text[begin] == '+');
      // A JSON text may write "\/"; a form may turn "+" into a blank.
      while (end < text.size() && (IsWordByte(text[end]) || std::string_view("+/=\\ \r\n").find(text[end]) != kNone))
        ++end;
      at = end;
      const std::string_view run = text.substr(begin, end - begin);
      std::string base64(run);
      std::replace(base64.begin(), base64.end(), ' ', '+');
      const std::string image = DecodeBase64(base64);
      Item item;
      item.field = place;
      item.image_name = true;
      if (!prose && !image.empty() && !IsImage(image)) return BlockPhoto(item);
      if (!base_.upload || !base_.upload_file) continue;
      if (CheckScript(item, image)) return true;
      if (!prose && run.find(' ') == kNone) continue;
      base64.assign(run.substr(std::min(run.find_first_not_of(" +"), run.size())));
      base64.erase(std::remove(base64.begin(), base64.end(), ' '), base64.end());
      if (CheckScript(item, DecodeBase64(base64))) return true;
    }
    return false;
  }

  bool BlockPhoto(const Item& item) {
    return Block(item, MessageId::kPhotoNoImage, item.content_type, kPhotoStatistics, MessageId::kPhotoItem);
  }

  /// What the log names a part by: "field=file".
  static std::string Shown(const Item& item) {
    const auto local = [](std::string_view text) {
      const std::string whole = CCharSet::ToLocal(std::string(text));
      return std::string(CCharSet::Prefix(whole, kLongestShown));
    };
    std::string shown = local(item.field);
    if (!item.file_name.empty()) AppendAll(&shown, {shown.empty() ? "" : "=", local(item.file_name)});
    return shown;
  }

  bool Block(const Item& item, MessageId finding, std::string_view found,
             std::string_view statistics = kUploadStatistics, MessageId protection = MessageId::kUploadItem) {
    const std::string_view comma = T(MessageId::kComma);
    const std::string_view colon = T(MessageId::kColon);
    result_.item = T(protection);
    result_.category = T(MessageId::kUploadCategory);
    AppendAll(&result_.reason, {T(MessageId::kUploadReason), comma, T(MessageId::kType), colon, T(finding)});
    AppendAll(&result_.detail, {T(MessageId::kUploadReason), T(MessageId::kOpenBracket), "File[", Shown(item), "]",
                                T(MessageId::kCloseBracket), comma, T(MessageId::kType), colon, T(finding)});
    if (!found.empty()) {
      AppendAll(&result_.detail, {comma, T(MessageId::kKeywords), colon,
                                  CCharSet::Prefix(CCharSet::ToLocal(std::string(found)), kLongestShown)});
    }
    BlockPlainly(kKindUpload, result_.request.statistics ? statistics : "", facts_, context_, result_);
    return true;
  }

  std::string_view T(MessageId id) const { return Message(context_.config.language, id); }

  const RequestFacts& facts_;
  const CheckContext& context_;
  CheckResult& result_;
  const BaseSettings& base_;
  const RequestSettings& request_;
  std::size_t scan_left_;   // bytes
  bool taken_ = false;      // the body is a form that was taken apart, or was taken as one file
  bool unscanned_ = false;  // limits kept something from being scanned
  bool partial_ = false;    // or a scan from following something, which another would not follow either
};

}  // namespace

bool IsUploadBody(const RequestFacts& facts) {
  const std::string_view type = Trim(facts.content_type);
  if (facts.raw_body.empty()) return false;
  if (IsMultipartBody(type, facts.raw_body)) return true;
  if (BeginsNoCase(type, "text/")) return false;
  for (const std::string_view text : {"json", "xml", "x-www-form-urlencoded", "javascript", "graphql", "yaml"}) {
    if (FindNoCase(type, text) != kNone && !BeginsNoCase(type, "image/")) return false;
  }
  return true;
}

void UploadCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result) {
  CUploadRun(facts, context, result).Run();
}

}  // namespace qiv
