// Requests as browsers send them.
#pragma once

#include <string>

#include "host/in_process.h"

namespace qiv::bench {

inline host::InProcessRequest Browser(std::string url) {
  host::InProcessRequest request;
  request.raw_url = std::move(url);
  request.headers = {
      {"Host", "www.example.com"},
      {"User-Agent", "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 Chrome/120.0.0.0 Safari/537.36"},
      {"Accept", "text/html,application/xhtml+xml,application/xml;q=0.9,image/webp,*/*;q=0.8"},
      {"Accept-Language", "en-US,en;q=0.5"},
      {"Accept-Encoding", "gzip, deflate, br"},
      {"Referer", "http://www.example.com/products/list.aspx?page=2"},
      {"Cookie", "ASP.NET_SessionId=abcdefghijklmnopqrstuvwx; theme=dark; cart=17,42"}};
  return request;
}

inline host::InProcessRequest PlainGet() { return Browser("/products/item.aspx"); }

}  // namespace qiv::bench
