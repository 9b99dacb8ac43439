#include "host/tunnel.h"

#include <array>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/write.hpp>

#include "port/clock.h"

namespace qiv::host {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using Error = boost::system::error_code;

constexpr std::size_t kPieceSize = 16384;

class CTunnel : public std::enable_shared_from_this<CTunnel> {
 public:
  CTunnel(std::shared_ptr<void> owner, tcp::socket& client, tcp::socket& upstream, TunnelLimits limits)
      : owner_(std::move(owner)),
        up_{client, upstream, {}},
        down_{upstream, client, {}},
        limits_(limits),
        strand_(asio::make_strand(client.get_executor())) {}

  void Start(const std::string& client_sent, const std::string& upstream_sent) {
    Touch();
    Begin(up_, client_sent);
    Begin(down_, upstream_sent);
  }

 private:
  struct Direction {
    tcp::socket& from;
    tcp::socket& to;
    std::array<char, kPieceSize> buffer;
  };

  void Touch() { *limits_.deadline = MonotonicMicroseconds() + limits_.idle_microseconds; }

  void Begin(Direction& way, const std::string& sent) {
    auto first = std::make_shared<std::string>(sent);
    asio::async_write(
        way.to, asio::buffer(*first),
        asio::bind_executor(strand_, [self = shared_from_this(), &way, first](const Error& error, std::size_t) {
          error ? self->Break() : self->Read(way);
        }));
  }

  void Read(Direction& way) {
    way.from.async_read_some(
        asio::buffer(way.buffer),
        asio::bind_executor(strand_, [self = shared_from_this(), &way](const Error& error, std::size_t size) {
          if (!error) return self->Write(way, size);
          // The end of one direction is told to the other side, which may still have something to say.
          Error ignored;
          error == asio::error::eof ? static_cast<void>(way.to.shutdown(tcp::socket::shutdown_send, ignored))
                                    : self->Break();
        }));
  }

  void Write(Direction& way, std::size_t size) {
    Touch();
    asio::async_write(way.to, asio::buffer(way.buffer, size),
                      asio::bind_executor(strand_, [self = shared_from_this(), &way](const Error& error, std::size_t) {
                        error ? self->Break() : self->Read(way);
                      }));
  }

  void Break() {
    Error ignored;
    up_.from.shutdown(tcp::socket::shutdown_both, ignored);
    down_.from.shutdown(tcp::socket::shutdown_both, ignored);
  }

  const std::shared_ptr<void> owner_;
  Direction up_;
  Direction down_;
  const TunnelLimits limits_;
  asio::strand<tcp::socket::executor_type> strand_;
};

}  // namespace

std::optional<tcp::socket> AdoptSocket(asio::io_context& io, COwnedSocket socket) {
  const bool is_ipv6 = IsIpv6(socket.handle());
  tcp::socket adopted(io);
  Error error;
  adopted.assign(is_ipv6 ? tcp::v6() : tcp::v4(), static_cast<tcp::socket::native_handle_type>(socket.handle()), error);
  if (error) return std::nullopt;
  socket.Release();
  return adopted;
}

void RunTunnel(std::shared_ptr<void> owner, tcp::socket& client, std::string client_sent, tcp::socket& upstream,
               std::string upstream_sent, TunnelLimits limits) {
  const auto tunnel = std::make_shared<CTunnel>(std::move(owner), client, upstream, limits);
  tunnel->Start(client_sent, upstream_sent);
}

}  // namespace qiv::host
