# Fails when the stripped executable is larger than LIMIT bytes, or when it
# holds iostreams (with NM given: std::ios_base alone brings in locales and
# more than the whole product weighs).
# cmake -DSTRIP=<strip> [-DNM=<nm>] -DEXECUTABLE=<file> -DLIMIT=<bytes> -DSTAMP=<file> -P CheckSize.cmake
# Leaves the stripped copy beside the executable (<file>.stripped) and, when
# the size is within the limit, writes it to STAMP.
foreach(var STRIP EXECUTABLE LIMIT STAMP)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "CheckSize.cmake: ${var} is not set")
  endif()
endforeach()

if(NM)
  execute_process(COMMAND "${NM}" "${EXECUTABLE}" OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${EXECUTABLE}")
  endif()
  if(symbols MATCHES "St8ios_base")
    file(REMOVE "${STAMP}")
    message(FATAL_ERROR "switch_config links iostreams (std::ios_base)")
  endif()
endif()

set(stripped "${EXECUTABLE}.stripped")
execute_process(COMMAND "${STRIP}" -o "${stripped}" "${EXECUTABLE}" RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${STRIP} failed on ${EXECUTABLE}")
endif()
file(SIZE "${stripped}" size)
math(EXPR kib "(${size} + 1023) / 1024")
math(EXPR limit_kib "${LIMIT} / 1024")
if(size GREATER LIMIT)
  file(REMOVE "${STAMP}")
  message(FATAL_ERROR "switch_config is ${size} bytes stripped (${kib} KiB), more than the limit of "
                      "${LIMIT} bytes (${limit_kib} KiB)")
endif()
message(STATUS "switch_config stripped: ${size} bytes (${kib} KiB), limit ${LIMIT} bytes (${limit_kib} KiB)")
file(WRITE "${STAMP}" "${size}\n")
