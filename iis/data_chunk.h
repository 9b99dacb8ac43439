// Chunks of an entity as the server's interface has them.
#pragma once

#include <cstddef>

#include "iis/http_types.h"

namespace iis {

/// A chunk of memory, which must live as long as the server keeps it; at most 4 GiB.
inline HTTP_DATA_CHUNK MakeMemoryChunk(const void* data, std::size_t size) {
  HTTP_DATA_CHUNK chunk{};
  chunk.DataChunkType = HttpDataChunkFromMemory;
  chunk.FromMemory.pBuffer = const_cast<void*>(data);
  chunk.FromMemory.BufferLength = static_cast<ULONG>(size);
  return chunk;
}

}  // namespace iis
