// Bytes both ways between two connections, once they speak a protocol of their own.
#pragma once

#include <utility>

// Asio needs std::exchange before its own headers.
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <memory>
#include <optional>
#include <string>

#include "host/socket.h"

namespace qiv::host {

struct TunnelLimits {
  std::atomic<std::int64_t>* deadline = nullptr;  ///< moved on with every byte; somebody else watches it
  std::int64_t idle_microseconds = 0;
};

/// Makes a socket of ours one of Asio's. Nothing when that fails.
std::optional<boost::asio::ip::tcp::socket> AdoptSocket(boost::asio::io_context& io, COwnedSocket socket);

/// Passes on what either side sends, after what it sent already, until both have ended or one is broken. Takes no
/// thread. `owner` keeps both sockets and is held as long as that lasts.
void RunTunnel(std::shared_ptr<void> owner, boost::asio::ip::tcp::socket& client, std::string client_sent,
               boost::asio::ip::tcp::socket& upstream, std::string upstream_sent, TunnelLimits limits);

}  // namespace qiv::host
