#include "bench/requests.h"

#include <cstdint>
#include <string>
#include <utility>

#include "bench/texts.h"

namespace qiv::bench {
namespace {

constexpr const char* kForm = "application/x-www-form-urlencoded";

host::InProcessRequest Browser(std::string url) {
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

host::InProcessRequest Post(std::string body, const char* type) {
  host::InProcessRequest request = Browser("/submit.aspx");
  request.method = "POST";
  request.headers.push_back({"Content-Type", type});
  request.body = std::move(body);
  return request;
}

host::InProcessRequest QueryGet() { return Browser("/search.aspx?" + OrdinaryForm(200)); }
host::InProcessRequest SmallForm() { return Post(OrdinaryForm(2 << 10), kForm); }
host::InProcessRequest Json() { return Post(OrdinaryJson(64 << 10), "application/json"); }
host::InProcessRequest LargeForm() { return Post(OrdinaryForm(1 << 20), kForm); }
host::InProcessRequest Upload() {
  std::string content(10 << 20, '\0');
  std::uint32_t state = 1;  // a fixed sequence: every run uploads the same bytes
  for (char& c : content) c = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  return Post(
      "--XXBOUNDARY\r\nContent-Disposition: form-data; name=\"file\"; filename=\"photo.jpg\"\r\n"
      "Content-Type: image/jpeg\r\n\r\n" +
          content + "\r\n--XXBOUNDARY--\r\n",
      "multipart/form-data; boundary=XXBOUNDARY");
}

constexpr DecisionCase kDecisions[] = {
    {"plain_get", PlainGet}, {"query_200_bytes", QueryGet}, {"form_2_KiB", SmallForm},
    {"json_64_KiB", Json},   {"form_1_MiB", LargeForm},     {"upload_10_MiB", Upload},
};

}  // namespace

host::InProcessRequest PlainGet() { return Browser("/products/item.aspx"); }

std::span<const DecisionCase> Decisions() { return kDecisions; }

}  // namespace qiv::bench
