// Bounded decompression: encoded bodies of requests, and what scripts hide behind gzinflate() and its like.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qiv {

/// How the compressed data is wrapped.
enum class DeflateWrap { kRaw, kZlib, kGzip };

/// At most `limit` bytes of what `data` (RFC 1951, with the header of RFC 1950 or 1952) decompresses to; what was
/// decoded before a fault is kept, check sums are not looked at. Empty when nothing could be decoded. Linear in the
/// input and the limit; never throws anything but std::bad_alloc.
std::string Inflate(std::string_view data, DeflateWrap wrap, std::size_t limit);

}  // namespace qiv
