// Reads JSON text. The containers that are open stand on an explicit stack of at most kJsonMaxDepth frames.
#include <memory>
#include <string>
#include <vector>

#include "base/hex.h"
#include "common/json.h"
#include "port/code_page.h"

namespace qiv {
namespace {

class CJsonParser {
 public:
  CJsonParser(std::string_view text, JsonError* error, std::vector<JsonDuplicate>* duplicates)
      : text_(text), error_(error), duplicates_(duplicates) {}

  std::unique_ptr<IJsonValue> Run() {
    if (text_.starts_with("\xEF\xBB\xBF")) pos_ = 3;
    while (true) {
      std::unique_ptr<IJsonValue> value;
      SkipSpace();
      if (!ReadValue(&value)) return nullptr;
      if (value == nullptr) continue;  // a container was opened and expects its first value
      // A value is complete: hand it to the container around it, and close every container that ends here.
      while (!open_.empty()) {
        bool closed = false;
        if (!Attach(&value, &closed)) return nullptr;
        if (!closed) break;
      }
      if (value != nullptr) return AtEnd() ? std::move(value) : nullptr;
    }
  }

 private:
  struct Frame {
    std::unique_ptr<IJsonValue> container;
    bool is_object;
    std::string key;  // of the value being read
  };

  bool Fail(std::size_t offset, std::string_view message) {
    if (error_ != nullptr) {
      error_->offset = offset;
      error_->message = message;
    }
    return false;
  }

  bool At(char c) const { return pos_ < text_.size() && text_[pos_] == c; }

  void SkipSpace() {
    while (pos_ < text_.size()) {
      const char c = text_[pos_];
      if (c != ' ' && c != '\t' && c != '\n' && c != '\r') return;
      ++pos_;
    }
  }

  bool AtEnd() {
    SkipSpace();
    return pos_ == text_.size() || Fail(pos_, "unexpected text after the value");
  }

  // Reads a scalar or an empty container into `value`, or opens a container and leaves `value` null.
  bool ReadValue(std::unique_ptr<IJsonValue>* value) {
    const std::size_t offset = pos_;
    if (pos_ == text_.size()) return Fail(pos_, "unexpected end of text, expected a value");
    const char c = text_[pos_];
    if (c == '{' || c == '[') {
      if (!Open(c == '{', value)) return false;
    } else if (c == '"') {
      std::string text;
      if (!ReadString(&text)) return false;
      *value = std::make_unique<JsonString>(std::move(text));
    } else if (c == '-' || (c >= '0' && c <= '9')) {
      if (!ReadNumber(value)) return false;
    } else if (Take("true")) {
      *value = std::make_unique<JsonBoolean>(true);
    } else if (Take("false")) {
      *value = std::make_unique<JsonBoolean>(false);
    } else if (Take("null")) {
      *value = std::make_unique<JsonNull>();
    } else {
      return Fail(pos_, "expected a value");
    }
    if (*value != nullptr) (*value)->SetOffset(offset);
    return true;
  }

  bool Take(std::string_view word) {
    if (text_.substr(pos_, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }

  bool Open(bool is_object, std::unique_ptr<IJsonValue>* value) {
    const std::size_t offset = pos_;
    if (open_.size() == kJsonMaxDepth) return Fail(pos_, "nested deeper than 64 levels");
    std::unique_ptr<IJsonValue> container;
    if (is_object) {
      container = std::make_unique<JsonObject>();
    } else {
      container = std::make_unique<JsonArray>();
    }
    ++pos_;
    SkipSpace();
    if (At(is_object ? '}' : ']')) {
      ++pos_;
      *value = std::move(container);
      return true;
    }
    container->SetOffset(offset);
    open_.push_back({std::move(container), is_object, {}});
    return !is_object || ReadKey();
  }

  // The key of the next member and the ":" after it.
  bool ReadKey() {
    if (!At('"')) return Fail(pos_, "expected a key in quotes");
    if (!ReadString(&open_.back().key)) return false;
    SkipSpace();
    if (!At(':')) return Fail(pos_, "expected ':' after the key");
    ++pos_;
    return true;
  }

  // Puts `value` into the innermost open container. After it either another value follows (value left null), or the
  // container ends and is itself the complete value.
  bool Attach(std::unique_ptr<IJsonValue>* value, bool* closed) {
    Frame& frame = open_.back();
    if (frame.is_object) {
      auto& object = static_cast<JsonObject&>(*frame.container);
      if (duplicates_ != nullptr) {
        const IJsonValue* const first = object.Find(frame.key);
        if (first != nullptr) duplicates_->push_back({frame.key, first->Offset(), (*value)->Offset()});
      }
      object.Set(std::move(frame.key), std::move(*value));
    } else {
      static_cast<JsonArray&>(*frame.container).Append(std::move(*value));
    }
    value->reset();
    SkipSpace();
    if (At(',')) {
      ++pos_;
      SkipSpace();
      return !frame.is_object || ReadKey();
    }
    if (!At(frame.is_object ? '}' : ']')) {
      return Fail(pos_, frame.is_object ? "expected ',' or '}'" : "expected ',' or ']'");
    }
    ++pos_;
    *value = std::move(frame.container);
    open_.pop_back();
    *closed = true;
    return true;
  }

  bool SkipDigits() {
    const std::size_t begin = pos_;
    while (pos_ < text_.size() && text_[pos_] >= '0' && text_[pos_] <= '9') ++pos_;
    return pos_ != begin || Fail(pos_, "expected a digit");
  }

  bool ReadNumber(std::unique_ptr<IJsonValue>* value) {
    const std::size_t begin = pos_;
    if (At('-')) ++pos_;
    if (At('0')) {
      ++pos_;
      if (pos_ < text_.size() && text_[pos_] >= '0' && text_[pos_] <= '9') return Fail(begin, "leading zero");
    } else if (!SkipDigits()) {
      return false;
    }
    if (At('.')) {
      ++pos_;
      if (!SkipDigits()) return false;
    }
    if (At('e') || At('E')) {
      ++pos_;
      if (At('+') || At('-')) ++pos_;
      if (!SkipDigits()) return false;
    }
    *value = std::make_unique<JsonNumber>(std::string(text_.substr(begin, pos_ - begin)));
    return true;
  }

  bool ReadString(std::string* out) {
    const std::size_t begin = pos_++;
    out->clear();
    while (pos_ < text_.size()) {
      const std::size_t run = pos_;
      while (pos_ < text_.size() && text_[pos_] != '"' && text_[pos_] != '\\' &&
             static_cast<unsigned char>(text_[pos_]) >= 0x20) {
        char32_t code;
        const std::size_t length = DecodeUtf8(text_, pos_, &code);
        if (length == 0) return Fail(pos_, "invalid UTF-8 in a string");
        pos_ += length;
      }
      out->append(text_, run, pos_ - run);
      if (pos_ == text_.size()) break;
      if (text_[pos_] == '"') {
        ++pos_;
        return true;
      }
      if (text_[pos_] != '\\') return Fail(pos_, "control byte in a string");
      if (!ReadEscape(out)) return false;
    }
    return Fail(begin, "string without its closing quote");
  }

  bool ReadEscape(std::string* out) {
    static constexpr std::string_view kLetters = "\"\\/bfnrt";
    static constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
    const std::size_t begin = pos_++;
    if (pos_ == text_.size()) return Fail(begin, "string without its closing quote");
    const char letter = text_[pos_++];
    if (letter != 'u') {
      const std::size_t index = kLetters.find(letter);
      if (index == kLetters.npos) return Fail(begin, "unknown escape");
      out->push_back(kMeanings[index]);
      return true;
    }
    char32_t code = 0;
    if (!ReadHex(&code)) return Fail(begin, "\\u needs four hexadecimal digits");
    if (code >= 0xDC00 && code <= 0xDFFF) return Fail(begin, "lone surrogate");
    if (code >= 0xD800 && code <= 0xDBFF) {
      char32_t low = 0;
      if (!Take("\\u") || !ReadHex(&low) || low < 0xDC00 || low > 0xDFFF) return Fail(begin, "lone surrogate");
      code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
    }
    AppendUtf8(code, out);
    return true;
  }

  bool ReadHex(char32_t* code) {
    const int value = HexNumber(text_, pos_, 4);
    if (value < 0) return false;
    *code = static_cast<char32_t>(value);
    pos_ += 4;
    return true;
  }

  std::string_view text_;
  JsonError* error_;
  std::vector<JsonDuplicate>* duplicates_;
  std::size_t pos_ = 0;
  std::vector<Frame> open_;
};

}  // namespace

std::unique_ptr<IJsonValue> ParseJson(std::string_view text, JsonError* error, std::vector<JsonDuplicate>* duplicates) {
  return CJsonParser(text, error, duplicates).Run();
}

}  // namespace qiv
