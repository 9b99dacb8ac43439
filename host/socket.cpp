#include "host/socket.h"

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#endif

#include <algorithm>
#include <climits>

namespace qiv::host {
namespace {

constexpr std::size_t kLargestCall = 1u << 30;
#if defined(TCP_NOTSENT_LOWAT)
constexpr int kUnsentLimit = 128 * 1024;  ///< a fast client on a fast line is sent more before this is gone
#endif

#if defined(_WIN32)
using Native = SOCKET;
using PollEntry = WSAPOLLFD;
constexpr int kSendFlags = 0;
int Poll(PollEntry* entry, int milliseconds) { return WSAPoll(entry, 1, milliseconds); }
bool WouldBlock() { return WSAGetLastError() == WSAEWOULDBLOCK; }
bool Interrupted() { return false; }
bool ConnectIsUnderWay() { return WSAGetLastError() == WSAEWOULDBLOCK; }
int CallSize(std::size_t size) { return static_cast<int>(std::min(size, kLargestCall)); }
void CloseNative(Native socket) { closesocket(socket); }
// A wait there need not end when another thread ends the connection, so it looks for that now and then.
constexpr int kLongestPoll = 1000;
bool WasShutDown(Native socket) {
  char byte;
  return recv(socket, &byte, 1, MSG_PEEK) < 0 && WSAGetLastError() == WSAESHUTDOWN;
}
void SetNonBlocking(Native socket) {
  u_long on = 1;
  ioctlsocket(socket, FIONBIO, &on);
}
void RaiseLimit() {}
constexpr int kShutWrite = SD_SEND;
constexpr int kShutBoth = SD_BOTH;
#else
using Native = int;
using PollEntry = pollfd;
constexpr int kSendFlags = MSG_NOSIGNAL;
int Poll(PollEntry* entry, int milliseconds) { return poll(entry, 1, milliseconds); }
bool WouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK; }
bool Interrupted() { return errno == EINTR; }
bool ConnectIsUnderWay() { return errno == EINPROGRESS; }
std::size_t CallSize(std::size_t size) { return std::min(size, kLargestCall); }
void CloseNative(Native socket) { close(socket); }
constexpr int kLongestPoll = INT_MAX;
bool WasShutDown(Native) { return false; }
void SetNonBlocking(Native socket) { fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK); }
void RaiseLimit() {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}
constexpr int kShutWrite = SHUT_WR;
constexpr int kShutBoth = SHUT_RDWR;
#endif

Native ToNative(SocketHandle socket) { return static_cast<Native>(socket); }

}  // namespace

IoResult ReadNow(SocketHandle socket, char* buffer, std::size_t size) {
  for (;;) {
    const auto got = recv(ToNative(socket), buffer, CallSize(size), 0);
    if (got > 0) return {IoStatus::kDone, static_cast<std::size_t>(got)};
    if (got == 0) return {IoStatus::kClosed, 0};
    if (Interrupted()) continue;
    return {WouldBlock() ? IoStatus::kWouldBlock : IoStatus::kFailed, 0};
  }
}

IoResult WriteNow(SocketHandle socket, const char* data, std::size_t size) {
  for (;;) {
    const auto sent = send(ToNative(socket), data, CallSize(size), kSendFlags);
    if (sent >= 0) return {IoStatus::kDone, static_cast<std::size_t>(sent)};
    if (Interrupted()) continue;
    return {WouldBlock() ? IoStatus::kWouldBlock : IoStatus::kFailed, 0};
  }
}

bool WaitFor(SocketHandle socket, bool read, bool write, int milliseconds, Readiness* ready) {
  PollEntry entry{};
  entry.fd = ToNative(socket);
  entry.events = static_cast<short>((read ? POLLIN : 0) | (write ? POLLOUT : 0));
  // An interrupted wait starts anew: signals are rare, and the limit is a safety net.
  int count = 0;
  bool shut_down = false;
  do {
    const int slice = std::min(milliseconds, kLongestPoll);
    count = Poll(&entry, slice);
    if (count != 0) continue;
    milliseconds -= slice;
    shut_down = WasShutDown(entry.fd);
  } while ((count < 0 && Interrupted()) || (count == 0 && milliseconds > 0 && !shut_down));
  if (count <= 0 && !shut_down) return false;
  const bool broken = shut_down || (entry.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
  ready->readable = broken || (entry.revents & POLLIN) != 0;
  ready->writable = broken || (entry.revents & POLLOUT) != 0;
  return true;
}

bool PeerIsGone(SocketHandle socket) {
  char byte;
  const auto got = recv(ToNative(socket), &byte, 1, MSG_PEEK);
  return got == 0 || (got < 0 && !WouldBlock() && !Interrupted());
}

bool IsIpv6(SocketHandle socket) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  return getsockname(ToNative(socket), reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
         address.ss_family == AF_INET6;
}

void ShutdownBoth(SocketHandle socket) {
  shutdown(ToNative(socket), kShutBoth);
#if defined(_WIN32)
  // There a read that is under way goes on waiting for a client that does not close its side.
  CancelIoEx(reinterpret_cast<HANDLE>(socket), nullptr);
#endif
}
void ShutdownWrite(SocketHandle socket) { shutdown(ToNative(socket), kShutWrite); }

void PrepareReset(SocketHandle socket) {
  linger off{};
  off.l_onoff = 1;
  off.l_linger = 0;
  setsockopt(ToNative(socket), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&off), sizeof off);
}

void LimitUnsent([[maybe_unused]] SocketHandle socket) {
#if defined(TCP_NOTSENT_LOWAT)
  // Elsewhere the system's own limit of a send buffer holds.
  const int limit = kUnsentLimit;
  setsockopt(ToNative(socket), IPPROTO_TCP, TCP_NOTSENT_LOWAT, reinterpret_cast<const char*>(&limit), sizeof limit);
#endif
}

void RaiseSocketLimit() { RaiseLimit(); }

void COwnedSocket::Close() {
  if (handle_ != kNoSocket) CloseNative(ToNative(handle_));
  handle_ = kNoSocket;
}

COwnedSocket ConnectTo(const std::string& host, const std::string& port, int milliseconds, bool* timed_out) {
  *timed_out = false;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &list) != 0) return {};
  COwnedSocket connected;
  for (const addrinfo* info = list; info != nullptr && !connected.is_open(); info = info->ai_next) {
    const Native native = socket(info->ai_family, info->ai_socktype, info->ai_protocol);
    COwnedSocket candidate(static_cast<SocketHandle>(native));
    if (!candidate.is_open()) continue;
    SetNonBlocking(native);
    const int on = 1;
    setsockopt(native, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
    if (connect(native, info->ai_addr, static_cast<socklen_t>(info->ai_addrlen)) != 0) {
      if (!ConnectIsUnderWay()) continue;
      Readiness ready;
      if (!WaitFor(candidate.handle(), false, true, milliseconds, &ready)) {
        *timed_out = true;
        continue;
      }
      int error = 0;
      socklen_t length = sizeof error;
      getsockopt(native, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &length);
      if (error != 0) continue;
    }
    connected = std::move(candidate);
  }
  freeaddrinfo(list);
  return connected;
}

}  // namespace qiv::host
