#include "bench/dearest/mixes.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string>

namespace qiv::bench {
namespace {

using namespace std::literals;

constexpr std::string_view kTokens[] = {
#include "bench/dearest/tokens.inc"
};
constexpr std::size_t kMostTokens = 8;

struct Kind {
  std::string_view name;
  std::vector<std::string_view> heads;
};

const std::vector<Kind>& Kinds() {
  constexpr std::string_view kFormPart = "--B\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n";
  constexpr std::string_view kFilePart =
      "--B\r\nContent-Disposition: form-data; name=\"a\"; filename=\"a.txt\"\r\n\r\n";
  static const std::vector<Kind> kKinds = {
      {"php", {"<?php ", "<?php function f($a){", "<?php \"", "<?php $a="}},
      {"asp", {"<% ", "", "<%@language=jscript%><% ", "<%=", "<% a=\"", "<% x="}},
      {"aspx",
       {"<%@ page language=\"jscript\"%><% ", "<%@ page language=\"c#\"%><script runat=\"server\">void f(string a){",
        "<%@ page language=\"vb\"%><% ", "<%@ webhandler language=\"c#\"%>", "<script runat=server>"}},
      {"script", {"", "<% ", "<?php ", "<script runat=server>"}},
      {"attacks", {"", "a\n", "x ", ";"}},
      {"form", {"", "a=", "a=<%", "a=%3C%25 ", "a=<?php "}},
      {"json", {"{\"a\":\"", "[\"", "[\"<%", "[", "{\"a\":\"\\u003c% "}},
      {"multipart", {kFormPart, "--B\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n<% ", "--B"}},
      {"upload", {kFilePart, "--B\r\nContent-Disposition: form-data; name=\"a\"; filename=\"a.txt\"\r\n\r\n<% "}},
      {"raw", {"", "<?php ", "<% "}},
      {"cookie", {"", "a=<%", "a="}},
      {"response", {"<html>", "<form><input type=file>", "<?php ", "<% "}},
  };
  return kKinds;
}

constexpr std::string_view kShapes = "csn";

std::size_t Below(std::size_t end, std::mt19937_64* random) { return (*random)() % end; }

std::size_t TakeNumber(std::string_view* text, char end) {
  std::size_t number = 0;
  const auto [last, fault] = std::from_chars(text->data(), text->data() + text->size(), number);
  if (fault != std::errc()) return SIZE_MAX;
  text->remove_prefix(static_cast<std::size_t>(last - text->data()));
  if (!text->empty()) {
    if (text->front() != end) return SIZE_MAX;
    text->remove_prefix(1);
  }
  return number;
}

void Append(std::string_view token, std::uint32_t* names, std::string* text) {
  for (const char c : token) {
    if (c == '\x01') {
      *text += 'n';
      for (std::uint32_t n = (*names)++; n != 0; n /= 26) *text += static_cast<char>('a' + n % 26);
    } else {
      *text += c;
    }
  }
}

}  // namespace

std::vector<std::string_view> KindNames() {
  std::vector<std::string_view> names;
  for (const Kind& kind : Kinds()) names.push_back(kind.name);
  return names;
}

std::string Mix::Name() const {
  std::string name(Kinds()[kind].name);
  name += ':' + std::to_string(head) + ':' + kShapes[static_cast<std::size_t>(shape)] + ':';
  for (const std::size_t token : tokens) name += std::to_string(token) + ',';
  name.pop_back();
  return name;
}

std::string Mix::Shown() const {
  std::string shown;
  constexpr std::string_view kHex = "0123456789ABCDEF";
  const auto put = [&](std::string_view text) {
    for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (byte >= 0x20 && byte < 0x7F && c != '\\') {
        shown += c;
      } else {
        shown += "\\x"s + kHex[byte >> 4U] + kHex[byte & 15U];
      }
    }
  };
  put(Kinds()[kind].heads[head]);
  shown += " [";
  for (const std::size_t token : tokens) {
    put(kTokens[token]);
    if (shape != Shape::kCycle) shown += '\'';
  }
  return shown + "]";
}

std::optional<Mix> ParseMix(std::string_view name) {
  Mix mix;
  const std::size_t colon = name.find(':');
  const std::vector<std::string_view> names = KindNames();
  mix.kind = static_cast<std::size_t>(std::find(names.begin(), names.end(), name.substr(0, colon)) - names.begin());
  if (colon == std::string_view::npos || mix.kind == names.size()) return std::nullopt;
  name.remove_prefix(colon + 1);
  mix.head = TakeNumber(&name, ':');
  if (mix.head >= Kinds()[mix.kind].heads.size() || name.size() < 3 || name[1] != ':') return std::nullopt;
  const std::size_t shape = kShapes.find(name[0]);
  if (shape == std::string_view::npos) return std::nullopt;
  mix.shape = static_cast<Shape>(shape);
  name.remove_prefix(2);
  while (!name.empty()) {
    mix.tokens.push_back(TakeNumber(&name, ','));
    if (mix.tokens.back() >= std::size(kTokens)) return std::nullopt;
  }
  return mix;
}

Mix RandomMix(std::size_t kind, std::mt19937_64* random) {
  Mix mix;
  mix.kind = kind;
  mix.head = Below(Kinds()[kind].heads.size(), random);
  mix.shape = static_cast<Shape>(std::max<int>(0, static_cast<int>(Below(5, random)) - 2));
  mix.tokens.resize(1 + Below(kMostTokens, random));
  for (std::size_t& token : mix.tokens) token = Below(std::size(kTokens), random);
  return mix;
}

Mix Changed(const Mix& mix, std::mt19937_64* random) {
  Mix changed = mix;
  for (std::size_t changes = 1 + Below(2, random); changes > 0; --changes) {
    std::vector<std::size_t>& tokens = changed.tokens;
    const auto at = static_cast<std::ptrdiff_t>(Below(tokens.size(), random));
    switch (Below(8, random)) {
      case 0:
        changed.head = Below(Kinds()[mix.kind].heads.size(), random);
        break;
      case 1:
        changed.shape = static_cast<Shape>(Below(kShapes.size(), random));
        break;
      case 2:
      case 3:
        if (tokens.size() > 1) tokens.erase(tokens.begin() + at);
        break;
      case 4:
      case 5:
        if (tokens.size() < kMostTokens) tokens.insert(tokens.begin() + at, Below(std::size(kTokens), random));
        break;
      default:
        tokens[static_cast<std::size_t>(at)] = Below(std::size(kTokens), random);
    }
  }
  return changed;
}

std::string TextOf(const Mix& mix, std::size_t bytes) {
  std::string text(Kinds()[mix.kind].heads[mix.head]);
  text.reserve(bytes + 256);
  std::uint32_t names = 26;
  std::mt19937_64 random(mix.tokens.size());  // a fixed sequence: the same text every time
  const std::size_t half = (mix.tokens.size() + 1) / 2;
  for (std::size_t i = 0; text.size() < bytes; ++i) {
    std::size_t token = i % mix.tokens.size();
    if (mix.shape == Shape::kShuffle) token = Below(mix.tokens.size(), &random);
    if (mix.shape == Shape::kNest && mix.tokens.size() > 1) {
      token = text.size() < bytes / 2 ? i % half : half + i % (mix.tokens.size() - half);
    }
    Append(kTokens[mix.tokens[token]], &names, &text);
  }
  text.resize(bytes);
  return text;
}

}  // namespace qiv::bench
