// Texts and tables for the MSVC half, which has no library.
#pragma once

#include <stddef.h>

namespace proof {

inline size_t Length(const char* text) {
  size_t n = 0;
  while (text[n] != 0) ++n;
  return n;
}

inline char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

/// Compares without case.
inline bool Same(const char* a, const char* b) {
  for (; *a != 0 && Lower(*a) == Lower(*b); ++a) ++b;
  return Lower(*a) == Lower(*b);
}

/// The names of the known headers in order of their numbers, each followed by "|". 0-19 are shared.
#define QIV_SHARED_NAMES                                                                                 \
  "Cache-Control|Connection|Date|Keep-Alive|Pragma|Trailer|Transfer-Encoding|Upgrade|Via|Warning|Allow|" \
  "Content-Length|Content-Type|Content-Encoding|Content-Language|Content-Location|Content-MD5|"          \
  "Content-Range|Expires|Last-Modified|"
inline constexpr char kRequestNames[] = QIV_SHARED_NAMES
    "Accept|Accept-Charset|Accept-Encoding|Accept-Language|Authorization|Cookie|Expect|From|Host|"
    "If-Match|If-Modified-Since|If-None-Match|If-Range|If-Unmodified-Since|Max-Forwards|"
    "Proxy-Authorization|Referer|Range|TE|Translate|User-Agent|";
inline constexpr char kResponseNames[] = QIV_SHARED_NAMES
    "Accept-Ranges|Age|ETag|Location|Proxy-Authenticate|Retry-After|Server|Set-Cookie|Vary|"
    "WWW-Authenticate|";
#undef QIV_SHARED_NAMES

/// Number of a name in such a list, without case; -1 when it is none.
inline int NumberOf(const char* names, const char* name) {
  for (int number = 0; *names != 0; ++number) {
    size_t i = 0;
    while (name[i] != 0 && Lower(names[i]) == Lower(name[i])) ++i;
    if (name[i] == 0 && names[i] == '|') return number;
    while (*names++ != '|') {
    }
  }
  return -1;
}

/// Memory of one request, handed out and forgotten as a whole.
class Arena {
 public:
  void Reset() { used_ = 0; }
  void* Take(size_t size) {
    const size_t start = (used_ + 15) / 16 * 16;
    if (size > sizeof(bytes_) || start > sizeof(bytes_) - size) return nullptr;
    used_ = start + size;
    return bytes_ + start;
  }
  char* Copy(const char* text, size_t size) {
    char* copy = static_cast<char*>(Take(size + 1));
    if (copy == nullptr) return nullptr;
    for (size_t i = 0; i < size; ++i) copy[i] = text[i];
    copy[size] = 0;
    return copy;
  }
  wchar_t* Widen(const char* text, size_t size) {
    wchar_t* copy = static_cast<wchar_t*>(Take((size + 1) * sizeof(wchar_t)));
    if (copy == nullptr) return nullptr;
    for (size_t i = 0; i < size; ++i) copy[i] = static_cast<unsigned char>(text[i]);
    copy[size] = 0;
    return copy;
  }

 private:
  size_t used_ = 0;
  alignas(16) char bytes_[8 * 1024 * 1024];
};

}  // namespace proof
