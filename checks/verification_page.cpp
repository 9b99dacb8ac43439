#include "checks/verification_page.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "checks/verification_pictures.h"
#include "common/char_set.h"
#include "common/messages.h"
#include "common/text.h"
#include "config/website_config.h"

namespace qiv {
namespace {

constexpr std::int64_t kJumpWait = 2;  // seconds; the page waits 3, clocks and rounding take one
constexpr std::string_view kSlideEnd = "100";

constexpr std::string_view kStyle =
    ":root{color-scheme:light dark;--a:#1a5fb4;--t:#1d1d1f;--s:#5c5c63;--b:#f4f4f6;--c:#fff;--l:#d5d5da}"
    "@media(prefers-color-scheme:dark){:root{--a:#7ab4ff;--t:#f2f2f4;--s:#a9a9b2;--b:#161618;--c:#232327;--l:#45454c}}"
    "*{box-sizing:border-box}body{margin:0;min-height:100vh;display:flex;align-items:center;justify-content:center;"
    "padding:16px;background:var(--b);color:var(--t);font:16px/1.55 system-ui,-apple-system,\"Segoe UI\","
    "\"Microsoft YaHei\",\"PingFang SC\",sans-serif}"
    "main{width:100%;max-width:460px;background:var(--c);border:1px solid var(--l);border-radius:12px;padding:28px}"
    "h1{font-size:21px;line-height:1.3;margin:0 0 8px}p{margin:8px 0}.s{color:var(--s);font-size:14px}"
    ".w{border-left:3px solid #c64600;padding-left:10px}"
    "button{font:inherit;color:var(--c);background:var(--a);border:2px solid var(--a);border-radius:8px;"
    "padding:10px 22px;cursor:pointer;min-height:46px}"
    "button:focus-visible,input:focus-visible{outline:3px solid var(--a);outline-offset:3px}"
    "input[type=range]{-webkit-appearance:none;appearance:none;width:100%;height:44px;margin:8px "
    "0;background:none;cursor:pointer}"
    "::-webkit-slider-runnable-track{height:8px;border-radius:4px;background:var(--l)}"
    "::-webkit-slider-thumb{-webkit-appearance:none;appearance:none;width:38px;height:38px;margin-top:-15px;border-"
    "radius:50%;"
    "border:4px solid var(--c);background:var(--a)}"
    "::-moz-range-track{height:8px;border-radius:4px;background:var(--l)}"
    "::-moz-range-thumb{width:30px;height:30px;border-radius:50%;border:4px solid var(--c);background:var(--a)}"
    ".g{display:grid;grid-template-columns:repeat(3,1fr);gap:10px;margin:14px 0}"
    ".g button{background:var(--b);border-color:var(--l);color:var(--t);padding:10px}"
    ".g button:hover{border-color:var(--a)}.g svg{display:block;width:100%;height:64px;fill:none;stroke:currentColor;"
    "stroke-width:3;stroke-linecap:round;stroke-linejoin:round}"
    ".bar{height:6px;border-radius:3px;background:var(--l);overflow:hidden;margin:16px 0}"
    ".bar i{display:block;height:100%;width:0;background:var(--a)}"
    "@media(prefers-reduced-motion:no-preference){.bar i{animation:f 3s linear forwards}@keyframes f{to{width:100%}}}";

// They read what they need from the form, so that no text of the page stands in a script.
constexpr std::string_view kJumpScript = "setTimeout(function(){document.forms[0].submit()},3000)";
constexpr std::string_view kSlideScript =
    "var r=document.querySelector('input[type=range]'),d=0;"
    "r.addEventListener('change',function(){if(r.value==r.max&&!d){d=1;r.form.submit()}})";
// Sets the cookie and asks again. Where cookies are refused the page says so and stays: no loop.
constexpr std::string_view kCookieScript =
    "var f=document.forms[0],n=f.elements[0],t=f.elements[1].value,k=n.name+'=';"
    "document.cookie=k+n.value+'; path=/; max-age=600; SameSite=Lax';"
    "if(document.cookie.indexOf(k+n.value)<0)document.getElementById('m').hidden=false;"
    "else{document.getElementById('j').hidden=true;location.replace(t)}";

class CPageText {
 public:
  explicit CPageText(const VerificationPage& page) : page_(page) {}

  std::string Whole() {
    Add({"<!DOCTYPE html><html lang=\"", page_.language == Language::kChinese ? "zh-CN" : "en",
         "\"><head><meta charset=\"{{charset}}\"><meta name=\"viewport\" content=\"width=device-width, "
         "initial-scale=1\"><meta name=\"robots\" content=\"noindex\"><title>"});
    Message(MessageId::kVerifyTitle);
    Add({"</title><style nonce=\"", page_.script_nonce, "\">", kStyle, "</style></head><body><main><h1>"});
    Message(MessageId::kVerifyTitle);
    Add({"</h1>"});
    Paragraph("", MessageId::kVerifyWhy);
    if (page_.lost_form) Paragraph(" class=\"w\"", MessageId::kVerifyLostForm);
    if (page_.wrong_answer) Paragraph(" class=\"w\" role=\"alert\"", MessageId::kVerifyWrong);
    Form();
    Add({"<p class=\"s\">IP: ", HtmlEscape(page_.client), "</p></main>"});
    Script();
    Add({"</body></html>"});
    return std::move(text_);
  }

 private:
  void Add(std::initializer_list<std::string_view> pieces) { AppendAll(&text_, pieces); }
  void Message(MessageId id) { text_ += CCharSet::LocalToUtf8(qiv::Message(page_.language, id)); }
  void Paragraph(std::string_view attributes, MessageId id) {
    Add({"<p", attributes, ">"});
    Message(id);
    Add({"</p>"});
  }

  void Form() {
    const std::string target = HtmlEscape(page_.target);
    const std::string_view path = std::string_view(target).substr(0, target.find('?'));
    Add({"<form method=\"get\" action=\"", path, "\"><input type=\"hidden\" name=\"", kTagField, "\" value=\"",
         page_.token, "\"><input type=\"hidden\" name=\"", kTargetField, "\" value=\"", target, "\">"});
    switch (page_.kind) {
      case kVerifySlide:
        Slide();
        break;
      case kVerifySelect:
        Pictures();
        break;
      case kVerifyCookie:
        Cookie();
        break;
      default:
        Button();
    }
    Add({"</form>"});
  }

  void Button() {
    if (page_.kind == kVerifyJump) {
      Paragraph("", MessageId::kVerifyJump);
      Add({"<div class=\"bar\" aria-hidden=\"true\"><i></i></div>"});
    } else {
      Paragraph("", MessageId::kVerifyClick);
    }
    Submit();
  }

  void Submit() {
    Add({"<p><button type=\"submit\">"});
    Message(MessageId::kVerifyContinue);
    Add({"</button></p>"});
  }

  void Slide() {
    Add({"<p><label for=\"r\">"});
    Message(MessageId::kVerifySlide);
    Add({"</label></p><input type=\"range\" id=\"r\" name=\"", kAnswerField,
         "\" min=\"0\" max=\"100\" step=\"5\" value=\"0\" autocomplete=\"off\">"});
    Submit();
  }

  void Pictures() {
    const std::array<std::size_t, CVisitorProofs::kAnswers> shown = DrawnPictures(page_.nonce);
    const VerificationPicture& asked = VerificationPictures()[shown[page_.answer]];
    Add({"<p id=\"q\">"});
    Message(MessageId::kVerifySelect);
    Add({"<br><b>"});
    Message(asked.riddle);
    Add({"</b></p><div class=\"g\" role=\"group\" aria-labelledby=\"q\">"});
    for (std::size_t i = 0; i < shown.size(); ++i) {
      const VerificationPicture& picture = VerificationPictures()[shown[i]];
      Add({"<button type=\"submit\" name=\"", kAnswerField, "\" value=\"", std::to_string(i), "\" aria-label=\""});
      Message(picture.name);
      Add({"\"><svg viewBox=\"0 0 64 64\" aria-hidden=\"true\"><path d=\"", picture.path, "\"/></svg></button>"});
    }
    Add({"</div>"});
  }

  void Cookie() {
    Add({"<div id=\"j\">"});
    Paragraph("", MessageId::kVerifyCookie);
    Add({"</div><div id=\"m\" hidden>"});
    Paragraph(" class=\"w\" role=\"alert\"", MessageId::kVerifyNoCookies);
    Add({"</div>"});
  }

  void Script() {
    const std::string_view script = page_.kind == kVerifyJump     ? kJumpScript
                                    : page_.kind == kVerifySlide  ? kSlideScript
                                    : page_.kind == kVerifyCookie ? kCookieScript
                                                                  : std::string_view();
    if (!script.empty()) Add({"<script nonce=\"", page_.script_nonce, "\">", script, "</script>"});
  }

  const VerificationPage& page_;
  std::string text_;
};

}  // namespace

std::string RenderVerificationPage(const VerificationPage& page) { return CPageText(page).Whole(); }

std::string VerificationPolicy(std::string_view script_nonce) {
  std::string policy;
  AppendAll(&policy, {"default-src 'none'; style-src 'nonce-", script_nonce, "'; script-src 'nonce-", script_nonce,
                      "'; form-action 'self'; base-uri 'none'; frame-ancestors 'self'"});
  return policy;
}

std::optional<VerificationAnswer> ReadVerificationAnswer(std::int32_t kind, std::string_view query,
                                                         std::string_view cookies) {
  if (kind == kVerifyCookie) {
    const std::string_view token = CookieValue(cookies, kTokenCookie);
    if (token.empty()) return std::nullopt;
    return VerificationAnswer{std::string(token), {}, {}};
  }
  if (query.find(kTagField) == std::string_view::npos) return std::nullopt;
  VerificationAnswer answer;
  const auto decoded = [](std::string_view value) { return PercentDecode(ReplaceAll(value, "+", " ")); };
  for (const Parameter& parameter : SplitParameters(query)) {
    if (parameter.name == kTagField) answer.token = decoded(parameter.value);
    if (parameter.name == kAnswerField) answer.answer = decoded(parameter.value);
    if (parameter.name == kTargetField) answer.target = decoded(parameter.value);
  }
  if (answer.token.empty()) return std::nullopt;
  return answer;
}

bool IsRightAnswer(std::int32_t kind, const PageToken& token, std::string_view answer, std::int64_t now) {
  switch (kind) {
    case kVerifySlide:
      return answer == kSlideEnd;
    case kVerifySelect:
      return answer == std::to_string(token.answer);
    case kVerifyJump:
      return now - token.issued >= kJumpWait;
    default:
      return true;  // a click, or a script that could set a cookie, is all that is asked
  }
}

}  // namespace qiv
