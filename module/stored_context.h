// What the module keeps with a request between its notifications.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "config/qiv_config.h"
#include "iis/httpserv.h"
#include "module/request_record.h"
#include "port/critical_section.h"

namespace qiv {

struct StreamedAnswer;

/// What is kept.
struct StoredRequest {
  std::shared_ptr<const RequestRecord> record;  ///< null: never saved
  std::int32_t page_written = 0;                ///< 1 once a page was written for the request
  std::string event_id;                         ///< of the event that the first of them stands for
  std::shared_ptr<StreamedAnswer> streamed;     ///< null: the answer does not go out in pieces that are looked at
};

/// Owned by the server once it was set; the server ends it with the request.
class CQivStoredContext final : public iis::IHttpStoredContext {
 public:
  CQivStoredContext() = default;
  iis::VOID CleanupStoredContext() override;
  virtual ~CQivStoredContext() = default;

  StoredRequest request;
};

/// The operations on the stored context. Thread safe: all of them hold one lock for the get, copy and set of a context.
///
/// The server refuses to set a second context for a request, also the very object it holds already; so setting again
/// after a change is a formality whose refusal means nothing, while a refused first set leaves the object with us.
class CStoredContexts {
 public:
  /// `config` gives the module's identifier and must outlive this object.
  explicit CStoredContexts(const CQivConfig& config) : config_(config) {}

  /// Puts the record into the request's stored context, creating it when there is none. False when the server did not
  /// take it, or memory ran out.
  bool Save(iis::IHttpContext& context, std::shared_ptr<const RequestRecord> record);

  /// What was kept so far.
  StoredRequest Load(iis::IHttpContext& context);

  /// Notes that a page was written for the request, and the event of the first one. False as above.
  bool MarkPageWritten(iis::IHttpContext& context, std::string_view event_id);

  /// Keeps what is known of an answer that goes out in pieces. False as above.
  bool KeepStreamed(iis::IHttpContext& context, std::shared_ptr<StreamedAnswer> streamed);

  bool PageWritten(iis::IHttpContext& context);

 private:
  template <typename Change>
  bool Update(iis::IHttpContext& context, Change&& change) QIV_EXCLUDES(lock_);
  CQivStoredContext* Find(iis::IHttpContext& context) QIV_REQUIRES(lock_);

  const CQivConfig& config_;
  CCriticalSection lock_;  ///< every stored context of the process
};

}  // namespace qiv
