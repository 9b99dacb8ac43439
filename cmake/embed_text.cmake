# cmake -DINPUT=file -DOUTPUT=file -P embed_text.cmake: writes a text file as the lines of a C++ string literal.
# One literal a line: compilers bound the length of each.
file(READ "${INPUT}" text)
string(REPLACE "\\" "\\\\" text "${text}")
string(REPLACE "\"" "\\\"" text "${text}")
string(REPLACE "\n" "\\n\"\n\"" text "${text}")
file(WRITE "${OUTPUT}" "\"${text}\"\n")
