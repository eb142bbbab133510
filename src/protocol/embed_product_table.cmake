# Turns the product table resource into C++: one raw string, compiled into the
# library, so nothing is read from disk at run time.
# Usage: cmake -DINPUT=<rows.txt> -DOUTPUT=<file.cpp> -DNAME=<shown in the header> -P embed_product_table.cmake
file(READ "${INPUT}" rows)
set(delimiter "trekcom_rows")
string(FIND "${rows}" ")${delimiter}\"" clash)
if(NOT clash EQUAL -1)
  message(FATAL_ERROR "${INPUT} contains the raw-string delimiter )${delimiter}\"")
endif()
file(WRITE "${OUTPUT}.tmp"
"// Generated at build time from ${NAME} by src/protocol/embed_product_table.cmake; do not edit.
#include \"protocol/product_table.h\"

namespace trekcom::protocol {

const std::string_view kProduct_Table_Resource = R\"${delimiter}(${rows})${delimiter}\";

}  // namespace trekcom::protocol
")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
