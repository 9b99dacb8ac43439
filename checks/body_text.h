// What of a request's body is judged as text.
#pragma once

#include "checks/request_facts.h"

namespace qiv {

/// Sets facts->text_body and facts->body from facts->raw_body and the content type. `without_files`: the contents of
/// binary files in a multipart form are left out of both (they are no values to any application; what files may hold is
/// upload protection's); only of parts that every reading of the form takes for the same file. Linear; copies the body
/// once, without those.
void SetBodyText(bool without_files, RequestFacts* facts);

}  // namespace qiv
