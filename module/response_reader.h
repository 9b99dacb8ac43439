// Reads what the application answers, without touching it.
#pragma once

#include <cstddef>
#include <string>

namespace iis {
class IHttpContext;
}

namespace qiv {

struct WebsiteConfig;

/// Bytes of a response that are read: what the checks look at stands at its head.
inline constexpr std::size_t kMostResponseBytes = 256 * 1024;

/// Whether the site has a check that reads responses.
bool WantsResponse(const WebsiteConfig& config);

/// The head of the response, or nothing: when it is no text by its content type,
/// compressed, on its way already, or kept where a module cannot read it. Nothing of the response changes.
std::string ReadResponse(iis::IHttpContext& context);

}  // namespace qiv
