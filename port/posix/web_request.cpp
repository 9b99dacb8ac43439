#include "port/web_request.h"

#include <errno.h>
#include <netdb.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace qiv {
namespace {

constexpr char kScheme[] = "http://";
constexpr std::size_t kStatusLine = 12;  // "HTTP/1.1 200"

int Connect(const std::string& host, const std::string& port, int limit_ms, std::string* failure) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (const int error = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found); error != 0) {
    *failure = ::gai_strerror(error);
    return -1;
  }
  int connection = -1;
  for (const addrinfo* place = found; place != nullptr && connection < 0; place = place->ai_next) {
    connection = ::socket(place->ai_family, place->ai_socktype | SOCK_CLOEXEC, place->ai_protocol);
    if (connection < 0) continue;
    const timeval limit{limit_ms / 1000, limit_ms % 1000 * 1000};
    ::setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (::connect(connection, place->ai_addr, place->ai_addrlen) == 0) break;
    *failure = strerror(errno);
    ::close(connection);
    connection = -1;
  }
  ::freeaddrinfo(found);
  return connection;
}

}  // namespace

WebAnswer FetchStatus(const WebPlace& place, int limit_ms) {
  const std::string& url = place.url;
  if (!url.starts_with(kScheme)) return {0, "this is no http:// URL"};
  const std::size_t begin = sizeof kScheme - 1;
  const std::size_t slash = std::min(url.find_first_of("/?", begin), url.size());
  const std::string authority = url.substr(begin, slash - begin);
  std::string path = url.substr(slash);
  if (path.empty() || path.front() != '/') path.insert(0, "/");
  const std::size_t bracket = authority.rfind(']');
  const std::size_t colon = authority.find(':', bracket == std::string::npos ? 0 : bracket);
  std::string host = authority.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  const std::string port = colon == std::string::npos ? "80" : authority.substr(colon + 1);
  WebAnswer answer;
  const int connection = Connect(host, port, limit_ms, &answer.failure);
  if (connection < 0) return answer;
  const std::string request = "GET " + path + " HTTP/1.1\r\nHost: " + (place.host.empty() ? authority : place.host) +
                              "\r\nUser-Agent: qivsetup\r\nConnection: close\r\n\r\n";
  std::string head;
  if (::send(connection, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
    char piece[kStatusLine];
    ssize_t got = 0;
    while (head.size() < kStatusLine && (got = ::recv(connection, piece, kStatusLine - head.size(), 0)) > 0) {
      head.append(piece, static_cast<std::size_t>(got));
    }
  }
  ::close(connection);
  if (head.size() == kStatusLine && head.starts_with("HTTP/")) answer.status = std::atoi(head.c_str() + 9);
  answer.failure = answer.status == 0 ? "no answer of HTTP" : "";
  return answer;
}

}  // namespace qiv
