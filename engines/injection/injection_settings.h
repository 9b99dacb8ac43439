// The site's injection settings, as the detectors and the injection check read them.
#pragma once

#include <cstdint>
#include <string>

namespace qiv {

/// Members are named like their configuration keys and declared once, in injection_keys.def. A number is on when it is
/// not 0.
struct InjectionSettings {
#define QIV_SWITCH(member, key, reader, meaning) std::int32_t member = 0;
#define QIV_BODY(member, key, reader, meaning) bool member = false;
#define QIV_LIST(member, key, reader, meaning) std::string member;
#define QIV_RULES(member, key, reader, meaning) std::string member;
#include "engines/injection/injection_keys.def"
#undef QIV_SWITCH
#undef QIV_BODY
#undef QIV_LIST
#undef QIV_RULES
};

}  // namespace qiv
