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

/// The names of the known headers by number: 0-19 are shared.
inline constexpr const char* kRequestNames[41] = {"Cache-Control",
                                                  "Connection",
                                                  "Date",
                                                  "Keep-Alive",
                                                  "Pragma",
                                                  "Trailer",
                                                  "Transfer-Encoding",
                                                  "Upgrade",
                                                  "Via",
                                                  "Warning",
                                                  "Allow",
                                                  "Content-Length",
                                                  "Content-Type",
                                                  "Content-Encoding",
                                                  "Content-Language",
                                                  "Content-Location",
                                                  "Content-MD5",
                                                  "Content-Range",
                                                  "Expires",
                                                  "Last-Modified",
                                                  "Accept",
                                                  "Accept-Charset",
                                                  "Accept-Encoding",
                                                  "Accept-Language",
                                                  "Authorization",
                                                  "Cookie",
                                                  "Expect",
                                                  "From",
                                                  "Host",
                                                  "If-Match",
                                                  "If-Modified-Since",
                                                  "If-None-Match",
                                                  "If-Range",
                                                  "If-Unmodified-Since",
                                                  "Max-Forwards",
                                                  "Proxy-Authorization",
                                                  "Referer",
                                                  "Range",
                                                  "TE",
                                                  "Translate",
                                                  "User-Agent"};

inline constexpr const char* kResponseNames[30] = {"Cache-Control",
                                                   "Connection",
                                                   "Date",
                                                   "Keep-Alive",
                                                   "Pragma",
                                                   "Trailer",
                                                   "Transfer-Encoding",
                                                   "Upgrade",
                                                   "Via",
                                                   "Warning",
                                                   "Allow",
                                                   "Content-Length",
                                                   "Content-Type",
                                                   "Content-Encoding",
                                                   "Content-Language",
                                                   "Content-Location",
                                                   "Content-MD5",
                                                   "Content-Range",
                                                   "Expires",
                                                   "Last-Modified",
                                                   "Accept-Ranges",
                                                   "Age",
                                                   "ETag",
                                                   "Location",
                                                   "Proxy-Authenticate",
                                                   "Retry-After",
                                                   "Server",
                                                   "Set-Cookie",
                                                   "Vary",
                                                   "WWW-Authenticate"};

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
