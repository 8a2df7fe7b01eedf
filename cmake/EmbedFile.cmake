# Writes a C++ source that holds a file's bytes: cmake -DINPUT= -DOUTPUT= -DSYMBOL= -P EmbedFile.cmake
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
string(REGEX REPLACE "(('\\\\x[0-9a-f][0-9a-f]',){16})" "\\1\n    " bytes "${bytes}")
file(WRITE "${OUTPUT}.tmp" "// Generated from ${INPUT}; do not edit.\n#include <cstddef>\n\nextern const char ${SYMBOL}[];\nextern const std::size_t ${SYMBOL}Size;\nconst char ${SYMBOL}[] = {\n    ${bytes}};\nconst std::size_t ${SYMBOL}Size = ${size};\n")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
