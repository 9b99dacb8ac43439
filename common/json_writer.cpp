// Writes JSON text.
#include <string>
#include <vector>

#include "base/hex.h"
#include "common/json.h"
#include "port/code_page.h"

namespace qiv {
namespace {

// Bytes that stand for themselves in a JSON string and need no look at what follows.
bool IsPlain(char c) {
  return static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7F && c != '"' && c != '\\';
}

void AppendEscaped(char32_t code, std::string* out) {
  out->append("\\u");
  for (int shift = 12; shift >= 0; shift -= 4) out->push_back(kLowerHexDigits[code >> shift & 0xF]);
}

void AppendCharacter(char32_t code, std::string* out) {
  static constexpr std::string_view kBytes = "\"\\\b\f\n\r\t";
  static constexpr std::string_view kLetters = "\"\\bfnrt";
  constexpr char32_t kLineSeparator = 0x2028;  // it and the next end a line in some readers
  const std::size_t short_form = code < 0x80 ? kBytes.find(static_cast<char>(code)) : kBytes.npos;
  if (short_form != kBytes.npos) {
    out->push_back('\\');
    out->push_back(kLetters[short_form]);
  } else if (code < 0x20 || (code >= 0x7F && code < 0xA0) || code == kLineSeparator || code == kLineSeparator + 1) {
    AppendEscaped(code, out);
  } else {
    AppendUtf8(code, out);
  }
}

class CJsonWriter {
 public:
  explicit CJsonWriter(std::size_t indent) : indent_(indent) {}

  std::string Run(const IJsonValue& root) {
    Begin(root);
    while (!open_.empty()) {
      Frame& frame = open_.back();
      const JsonObject* object = frame.container->AsObject();
      const JsonArray* array = frame.container->AsArray();
      if (frame.next == (object != nullptr ? object->Size() : array->Size())) {
        open_.pop_back();
        NewLine();
        out_.push_back(object != nullptr ? '}' : ']');
        continue;
      }
      const std::size_t index = frame.next++;
      if (index != 0) out_.push_back(',');
      NewLine();
      if (object != nullptr) {
        AppendJsonString(object->Members()[index]->first, &out_);
        out_.append(indent_ != 0 ? ": " : ":");
      }
      // A null pointer in a tree that was built by hand is written as null.
      const IJsonValue* value =
          object != nullptr ? object->Members()[index]->second.get() : array->Items()[index].get();
      if (value == nullptr) {
        out_.append("null");
      } else {
        Begin(*value);
      }
    }
    return std::move(out_);
  }

 private:
  struct Frame {
    const IJsonValue* container;
    std::size_t next;
  };

  // Writes a value whole, or opens a container that holds something.
  void Begin(const IJsonValue& value) {
    const JsonObject* object = value.AsObject();
    const JsonArray* array = value.AsArray();
    if (object != nullptr || array != nullptr) {
      out_.push_back(object != nullptr ? '{' : '[');
      if ((object != nullptr ? object->Size() : array->Size()) == 0) {
        out_.push_back(object != nullptr ? '}' : ']');
      } else {
        open_.push_back({&value, 0});
      }
    } else if (value.Type() == JsonType::kString) {
      AppendJsonString(value.AsString()->Value(), &out_);
    } else {
      out_.append(value.Type() == JsonType::kNull ? "null" : value.Text());
    }
  }

  void NewLine() {
    if (indent_ == 0) return;
    out_.push_back('\n');
    out_.append(indent_ * open_.size(), ' ');
  }

  std::size_t indent_;
  std::string out_;
  std::vector<Frame> open_;
};

}  // namespace

std::string WriteJson(const IJsonValue& value, std::size_t indent) { return CJsonWriter(indent).Run(value); }

void AppendJsonString(std::string_view text, std::string* out) {
  constexpr char32_t kReplacement = 0xFFFD;
  out->push_back('"');
  for (std::size_t pos = 0; pos < text.size();) {
    const std::size_t run = pos;
    while (pos < text.size() && IsPlain(text[pos])) ++pos;
    out->append(text, run, pos - run);
    if (pos == text.size()) break;
    char32_t code = kReplacement;
    const std::size_t length = DecodeUtf8(text, pos, &code);
    AppendCharacter(length == 0 ? kReplacement : code, out);
    pos += length == 0 ? 1 : length;
  }
  out->push_back('"');
}

}  // namespace qiv
