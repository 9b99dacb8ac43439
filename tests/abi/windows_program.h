// What the two halves of the Windows test program say to each other: C functions and plain structures only. One half is
// compiled by g++ with GoogleTest, the other by clang for the MSVC ABI without any library.
#pragma once

#if defined(_MSC_VER)
#include "tests/abi/natural_httpserv.h"
#endif

#include "tests/abi/transcript.h"

#if defined(_MSC_VER)
using RegisterModuleFunction = HRESULT (*)(DWORD, IHttpModuleRegistrationInfo*, IHttpServer*);
using CallObjectsFunction = void (*)(IHttpModuleContextContainer*, IHttpConnection*, IHttpRequest*, IHttpResponse*);
#else
using RegisterModuleFunction = void (*)();
using CallObjectsFunction = void (*)();
#endif

/// Calls everything once. Null, or the name of the first call that was answered by another method.
extern "C" const char* DriveEveryCall(RegisterModuleFunction register_module, CallObjectsFunction call_objects);
/// The calls as the host saw them.
extern "C" const proof::Transcript* HostTranscript();
