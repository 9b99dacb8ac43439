// A module that does what modules do to a server at their worst; the header X-Do of a request says what.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "iis/httpserv.h"

#if defined(_WIN32)
#define HOSTILE_EXPORT __declspec(dllexport)
#else
#define HOSTILE_EXPORT __attribute__((visibility("default")))
#endif

namespace {

using iis::RQ_NOTIFICATION_CONTINUE;
using iis::RQ_NOTIFICATION_FINISH_REQUEST;
using iis::RQ_NOTIFICATION_PENDING;
using Status = iis::REQUEST_NOTIFICATION_STATUS;

std::string WhatToDo(iis::IHttpContext* context) {
  iis::USHORT length = 0;
  const char* value = context->GetRequest()->GetHeader("X-Do", &length);
  return value == nullptr ? std::string() : std::string(value, length);
}

void Answer(iis::IHttpContext* context, iis::USHORT status, const char* text) {
  iis::IHttpResponse* response = context->GetResponse();
  response->SetStatus(status, "Because", 0, 0, nullptr, 1);
  iis::HTTP_DATA_CHUNK chunk{};
  chunk.FromMemory.pBuffer = const_cast<char*>(text);
  chunk.FromMemory.BufferLength = static_cast<iis::ULONG>(std::strlen(text));
  response->WriteEntityChunks(&chunk, 1, 0, 1, nullptr, nullptr);
}

/// Reads the whole body in small pieces and gives it back.
Status ReadAndInsert(iis::IHttpContext* context) {
  iis::IHttpRequest* request = context->GetRequest();
  std::string body;
  char piece[4096];
  while (request->GetRemainingEntityBytes() != 0) {
    iis::DWORD got = 0;
    const iis::HRESULT result = request->ReadEntityBody(piece, sizeof piece, 0, &got, nullptr);
    if (result == iis::kHandleEof) break;
    if (iis::Failed(result)) {
      Answer(context, 400, "client lost");
      return RQ_NOTIFICATION_FINISH_REQUEST;
    }
    body.append(piece, got);
  }
  const auto size = static_cast<iis::DWORD>(body.size());
  void* copy = context->AllocateRequestMemory(size);
  if (size > 0) std::memcpy(copy, body.data(), size);
  request->InsertEntityBody(copy, size);
  return RQ_NOTIFICATION_CONTINUE;
}

/// Runs a task on a thread of the module's own. The file may be unloaded once JoinLater has returned, not before.
std::mutex later_lock;
std::vector<std::thread> later;

void Later(std::function<void()> task) {
  const std::lock_guard hold(later_lock);
  later.emplace_back(std::move(task));
}

void JoinLater() {
  const std::lock_guard hold(later_lock);
  for (std::thread& thread : later) thread.join();
  later.clear();
}

class CHostileModule final : public iis::CHttpModule {
 public:
  Status OnBeginRequest(iis::IHttpContext* context, iis::IHttpEventProvider*) override {
    const std::string action = WhatToDo(context);
    if (action == "read") return ReadAndInsert(context);
    if (action == "block") {
      Answer(context, 403, "blocked");
      return RQ_NOTIFICATION_FINISH_REQUEST;
    }
    if (action == "read-some") {
      char piece[10];
      iis::DWORD got = 0;
      context->GetRequest()->ReadEntityBody(piece, sizeof piece, 0, &got, nullptr);
      Answer(context, 403, "seen enough");
      return RQ_NOTIFICATION_FINISH_REQUEST;
    }
    if (action == "reset") {
      context->GetResponse()->ResetConnection();
      return RQ_NOTIFICATION_FINISH_REQUEST;
    }
    if (action == "pending") {
      Later([context] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        Answer(context, 200, "later");
        context->IndicateCompletion(RQ_NOTIFICATION_FINISH_REQUEST);
      });
      return RQ_NOTIFICATION_PENDING;
    }
    return RQ_NOTIFICATION_CONTINUE;
  }

  Status OnSendResponse(iis::IHttpContext* context, iis::ISendResponseProvider* provider) override {
    if (!provider->GetHeadersBeingSent()) return RQ_NOTIFICATION_FINISH_REQUEST;  // means nothing here
    context->GetResponse()->SetHeader("X-Module", "here", 4, 1);
    context->GetResponse()->DeleteHeader("Server");
    return RQ_NOTIFICATION_CONTINUE;
  }
};

class CHostileFactory final : public iis::IHttpModuleFactory {
 public:
  iis::HRESULT GetHttpModule(iis::CHttpModule** module, iis::IModuleAllocator*) override {
    *module = new CHostileModule;
    return 0;
  }
  void Terminate() override {
    JoinLater();
    std::puts("factory terminated");
    std::fflush(stdout);
    delete this;
  }
};

class CHostileGlobal final : public iis::CGlobalModule {
 public:
  void Terminate() override {
    std::puts("global terminated");
    std::fflush(stdout);
    delete this;
  }
};

}  // namespace

extern "C" HOSTILE_EXPORT iis::HRESULT RegisterModule(iis::DWORD, iis::IHttpModuleRegistrationInfo* info,
                                                      iis::IHttpServer*) {
  info->SetRequestNotifications(new CHostileFactory, iis::RQ_BEGIN_REQUEST | iis::RQ_SEND_RESPONSE, 0);
  info->SetGlobalNotifications(new CHostileGlobal, iis::GL_PRE_BEGIN_REQUEST);
  return 0;
}
