#include "tools/report_html.h"

#include <utility>

#include "tools/printable.h"

namespace qiv {
namespace {

constexpr std::pair<std::string_view, std::string_view> kTexts[] = {
#define QIV_REPORT_TEXT(id, english, chinese) {english, chinese},
#include "tools/report_texts.def"
#undef QIV_REPORT_TEXT
};

// {0} to {9} replaced; a text holds no other brace.
std::string Filled(std::string_view text, std::initializer_list<std::string> pieces) {
  std::string filled;
  while (true) {
    const std::size_t brace = text.find('{');
    filled += text.substr(0, brace);
    if (brace == std::string_view::npos) return filled;
    const auto number = static_cast<std::size_t>(text[brace + 1] - '0');
    if (number < pieces.size()) filled += pieces.begin()[number];
    text.remove_prefix(brace + 3);
  }
}

}  // namespace

std::string HtmlText(std::string_view text) {
  std::string html;
  for (const char c : VisibleUtf8(text)) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

std::string BothLanguages(ReportText text, std::initializer_list<std::string> pieces) {
  const auto& [english, chinese] = kTexts[static_cast<std::size_t>(text)];
  return "<span class=\"en\" lang=\"en\">" + Filled(english, pieces) + "</span><span class=\"zh\" lang=\"zh-CN\">" +
         Filled(chinese, pieces) + "</span>";
}

std::string_view PlainText(ReportText text, Language language) {
  const auto& [english, chinese] = kTexts[static_cast<std::size_t>(text)];
  return language == Language::kChinese ? chinese : english;
}

std::string_view ReportStyle() {
  return R"css(
:root { color-scheme: light dark; --back: #f3f5f7; --card: #fff; --text: #1d2733; --soft: #53606e; --line: #d9dfe5;
  --mark: #1a5fb4; --stop: #c0392b; --would: #b9770e; --pass: #2e7d4f; --row: #f7f9fb; }
@media (prefers-color-scheme: dark) { :root { --back: #12171d; --card: #1c232b; --text: #e6ebf0; --soft: #a3b0bd;
  --line: #35404b; --mark: #7fb2f5; --stop: #f08a7e; --would: #e8b65a; --pass: #7ccb9b; --row: #222a33; } }
* { box-sizing: border-box; }
body { margin: 0; padding: 1.25rem; background: var(--back); color: var(--text);
  font: 1rem/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "PingFang SC", "Microsoft YaHei", "Noto Sans CJK SC", sans-serif; }
header, main { max-width: 76rem; margin: 0 auto; }
header { display: flex; flex-wrap: wrap; gap: .5rem 1.5rem; align-items: flex-start; justify-content: space-between; }
h1 { margin: 0; font-size: 1.6rem; line-height: 1.3; }
h2 { margin: 0 0 .75rem; font-size: 1.1rem; }
p { margin: .25rem 0; }
.soft, .note { color: var(--soft); font-size: .875rem; }
.note { margin: .75rem 0 0; }
.path { overflow-wrap: anywhere; }
section, .warn { margin-top: 1rem; padding: 1.1rem 1.25rem; background: var(--card); border: 1px solid var(--line);
  border-radius: .75rem; min-width: 0; }
.warn { border-left: .35rem solid var(--stop); }
.language { position: absolute; opacity: 0; }
.switch { display: flex; gap: .25rem; }
.switch label { padding: .3rem .8rem; border: 1px solid var(--line); border-radius: .5rem; cursor: pointer; color: var(--soft); }
#en:checked ~ * .zh, #zh:checked ~ * .en { display: none; }
#en:checked ~ header .switch [for=en], #zh:checked ~ header .switch [for=zh] { background: var(--mark);
  border-color: var(--mark); color: var(--card); }
#en:focus-visible ~ header .switch [for=en], #zh:focus-visible ~ header .switch [for=zh], :focus-visible {
  outline: 3px solid var(--mark); outline-offset: 2px; }
.tiles { display: grid; grid-template-columns: repeat(auto-fit, minmax(9.5rem, 1fr)); gap: 1rem; margin: 1rem 0 0; padding: 0; }
.tiles div { padding: 1rem 1.25rem; background: var(--card); border: 1px solid var(--line); border-radius: .75rem; }
.tiles dt { color: var(--soft); font-size: .875rem; }
.tiles dd { margin: 0; font-size: 1.7rem; font-weight: 600; line-height: 1.25; font-variant-numeric: tabular-nums; }
.stop { color: var(--stop); } .would { color: var(--would); } .pass { color: var(--pass); }
.tables { columns: 2; column-gap: 1rem; }
.tables section { break-inside: avoid; margin: 1rem 0 0; }
.tables section:first-child { margin-top: 0; } .tables { margin-top: 1rem; }
table { width: 100%; border-collapse: collapse; font-size: .9375rem; }
th { padding: .25rem .4rem; text-align: left; font-size: .8125rem; font-weight: 600; color: var(--soft); border-bottom: 1px solid var(--line); }
td { padding: .35rem .4rem; border-bottom: 1px solid var(--line); vertical-align: top; }
.number { width: 1%; text-align: right; white-space: nowrap; font-variant-numeric: tabular-nums; }
th.number { white-space: normal; vertical-align: bottom; }
td.number.zero { color: var(--soft); }
td.time, span.time { white-space: nowrap; }
.name { overflow-wrap: anywhere; }
.name small { display: block; color: var(--soft); }
.time { font-variant-numeric: tabular-nums; }
.others td { color: var(--soft); border-bottom: 0; }
.share { display: block; width: 100%; height: .25rem; margin-top: .2rem; background: var(--row); border-radius: .125rem; }
svg .stop { fill: var(--stop); } svg .would { fill: var(--would); } svg .pass { fill: var(--pass); }
.course { display: block; width: 100%; height: 9rem; border-bottom: 1px solid var(--line); }
.course .back { fill: transparent; } .course g:hover .back { fill: var(--line); }
.axis span { white-space: nowrap; } .axis { display: flex; justify-content: space-between; gap: .5rem; color: var(--soft); font-size: .8125rem; font-variant-numeric: tabular-nums; }
.legend { white-space: nowrap; }
.key { display: inline-block; width: .75rem; height: .75rem; margin: 0 .35rem 0 1rem; border-radius: .15rem; background: currentColor; }
.scroll { max-height: 24rem; overflow: auto; }
summary { cursor: pointer; }
.filter { display: grid; grid-template-columns: 2fr 1fr 1fr auto; gap: .5rem .75rem; align-items: end; margin-bottom: .75rem; }
.filter[hidden] { display: none; }
.filter label { display: block; font-size: .8125rem; color: var(--soft); }
.filter input, .filter select { display: block; width: 100%; padding: .45rem .6rem; border: 1px solid var(--soft);
  border-radius: .375rem; font: inherit; background: var(--back); color: var(--text); }
.filter output { padding: .45rem 0; white-space: nowrap; font-variant-numeric: tabular-nums; }
.events { margin: 0; padding: 0; list-style: none; border-top: 1px solid var(--line); }
.events > li { border-bottom: 1px solid var(--line); }
.events > li[hidden] { display: none; }
.events summary { display: grid; grid-template-columns: 10.5rem 6.5rem 7.5rem minmax(9rem, 13rem) minmax(0, 1fr); gap: 0 .75rem;
  padding: .45rem .4rem; font-size: .9375rem; list-style: none; }
.events summary::-webkit-details-marker { display: none; }
.events summary:hover, .events details[open] > summary { background: var(--row); }
.events summary > * { overflow-wrap: anywhere; min-width: 0; }
.events .url { display: -webkit-box; -webkit-box-orient: vertical; -webkit-line-clamp: 2; overflow: hidden; }
.events details[open] .url { -webkit-line-clamp: none; }
.events dl { display: grid; grid-template-columns: max-content minmax(0, 1fr); gap: .2rem 1rem; margin: .25rem 0 .75rem; padding: .25rem .4rem; font-size: .9375rem; }
.events dt { color: var(--soft); }
.events dd { margin: 0; overflow-wrap: anywhere; white-space: pre-wrap; }
code { font: .9em ui-monospace, Consolas, Menlo, monospace; }
@media (max-width: 60rem) { .tables { columns: 1; } }
@media (max-width: 48rem) { .events summary { display: flex; flex-wrap: wrap; } .events .who, .events .url { width: 100%; }
  .filter { grid-template-columns: 1fr 1fr; }
  .filter div:first-child { grid-column: 1 / -1; } .filter output { grid-column: 1 / -1; padding: 0; } }
@media (max-width: 30rem) { body { padding: .75rem; } section, .warn { padding: .9rem; } .tiles { grid-template-columns: 1fr 1fr; gap: .6rem; }
  .tiles div { padding: .7rem .9rem; } .tiles dd { font-size: 1.4rem; } .axis span:nth-child(2) { display: none; }
  th.number { max-width: 4.6rem; } td, th { padding-left: .25rem; padding-right: .25rem; } .events dl { grid-template-columns: minmax(0, 1fr); gap: 0; }
  .events dd { margin-bottom: .4rem; } .stack td { display: block; border: 0; padding: .05rem 0; } .stack th { display: none; }
  .stack tr { display: block; padding: .4rem 0; border-bottom: 1px solid var(--line); } .scroll { max-height: none; } }
@media print { body { background: none; } .filter, .switch { display: none; } section { break-inside: avoid; } }
)css";
}

std::string_view ReportScript() {
  return R"js(
(function () {
  'use strict';
  var root = document.documentElement, zh = document.getElementById('zh'), en = document.getElementById('en');
  var filter = document.getElementById('filter');
  if (!root.hasAttribute('data-chosen')) (/^zh/i.test(navigator.language || '') ? zh : en).checked = true;
  function language() {
    root.lang = zh.checked ? 'zh-CN' : 'en-US';
    document.querySelectorAll('option[data-en]').forEach(function (option) {
      option.textContent = option.getAttribute(zh.checked ? 'data-zh' : 'data-en');
    });
  }
  [zh, en].forEach(function (button) { button.addEventListener('change', language); });
  language();
  if (!filter) return;
  var text = document.getElementById('text'), check = document.getElementById('check');
  var action = document.getElementById('action'), shown = document.getElementById('shown');
  var none = document.getElementById('none');
  var rows = Array.prototype.map.call(document.querySelectorAll('.events > li'), function (item) {
    var texts = Array.prototype.map.call(item.querySelectorAll('summary, dd'), function (e) { return e.textContent; });
    return { item: item, text: texts.join(' ').toLowerCase(), check: item.getAttribute('data-check'),
             action: item.getAttribute('data-action') };
  });
  function fill(select, name) {
    var values = Array.from(new Set(rows.map(function (row) { return row[name]; }))).sort();
    values.forEach(function (value) { select.add(new Option(value, value)); });
  }
  function apply() {
    var words = text.value.toLowerCase().split(/\s+/).filter(Boolean), count = 0;
    rows.forEach(function (row) {
      var fits = (check.selectedIndex === 0 || row.check === check.value) &&
                 (action.selectedIndex === 0 || row.action === action.value) &&
                 words.every(function (word) { return row.text.indexOf(word) >= 0; });
      row.item.hidden = !fits;
      if (fits) count += 1;
    });
    shown.textContent = count + ' / ' + rows.length;
    none.hidden = count !== 0;
  }
  fill(check, 'check');
  fill(action, 'action');
  text.addEventListener('input', apply);
  check.addEventListener('change', apply);
  action.addEventListener('change', apply);
  text.addEventListener('keydown', function (event) {
    if (event.key === 'Escape') { text.value = ''; apply(); }
  });
  filter.hidden = false;
  apply();
}());
)js";
}

}  // namespace qiv
