// One client connection of the server.
#pragma once

// Before the system's headers, which make macros of some of its names.
#include "iis/http_types.h"

#include <utility>

// Asio needs std::exchange before its own headers.
#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/host_connection.h"
#include "host/http_parser.h"
#include "host/request_input.h"
#include "host/request_memory.h"
#include "host/socket_wire.h"

namespace qiv::host {

struct ServerState;

/// Goes from stage to stage; each waits, when it must, without a thread. Lives while a wait or a request holds it. Only
/// one thread works on it at a time; others touch nothing but the deadline, the kind of its wait, and the handles.
class CClient : public std::enable_shared_from_this<CClient> {
 public:
  CClient(std::shared_ptr<ServerState> server, boost::asio::ip::tcp::socket socket);
  ~CClient();
  CClient(const CClient&) = delete;
  CClient& operator=(const CClient&) = delete;

  void Start();
  /// Goes on after Park.
  void Resume() { Work(); }

  // From any thread, while the object lives.
  std::int64_t deadline() const { return deadline_; }  ///< of the present wait, MonotonicMicroseconds
  bool is_idle() const { return idle_; }               ///< nothing is lost when it ends now
  bool is_expendable() const { return expendable_; }   ///< holds no request: the first to go when handles are scarce
  void CutOff();

 private:
  enum class Stage { kHead, kBody, kTail, kSkip, kLinger };

  void Work();
  bool Step();
  IoResult ReadMore();
  bool ReadMoreBody();
  bool TakeHead();
  bool TakeBodyAhead();
  bool SendTail();
  bool SkipBody();
  bool Linger();
  bool Finish();
  void WaitForHead();
  void WaitWithin(CPace& pace, bool write);
  void Wait(bool write);
  void KeepHead();
  bool Serve();
  bool Refuse(int status, const char* reason);
  void BeginTunnel(COwnedSocket upstream, std::string early);
  void Log(std::string_view method, std::string_view url, int status, std::uint64_t bytes);

  const std::shared_ptr<ServerState> server_;
  boost::asio::ip::tcp::socket socket_;
  const SocketHandle handle_;
  CInputBuffer input_;
  CSocketWire wire_;
  CRequestMemory memory_;
  std::unique_ptr<CHostConnection> connection_;
  const std::uint64_t id_;
  HostAddress remote_{};
  HostAddress local_{};

  Stage stage_ = Stage::kHead;
  RequestHead head_;
  std::string head_text_;          ///< the request works on a copy, as body reads move the input buffer
  bool waiting_for_head_ = false;  ///< part of a head has arrived: its time limit runs on
  bool keep_ = false;              ///< another request may follow
  CPace* pace_ = nullptr;          ///< of the present wait
  std::int64_t wait_began_ = 0;
  std::int64_t linger_end_ = 0;
  std::size_t lingered_ = 0;
  std::optional<boost::asio::ip::tcp::socket> upstream_;  ///< the other side of a tunnel

  std::atomic<std::int64_t> deadline_{INT64_MAX};
  std::atomic<bool> idle_{false};
  std::atomic<bool> expendable_{false};
  std::atomic<SocketHandle> upstream_handle_{kNoSocket};
};

}  // namespace qiv::host
