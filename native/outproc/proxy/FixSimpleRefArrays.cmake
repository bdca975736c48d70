# cmake -DFILE=<name>_p.c -P FixSimpleRefArrays.cmake
#
# widl describes an [in, size_is(n)] parameter of a complex array (VARIANT *, OPCITEMDEF *, ...) as a
# "simple ref" pointing at the array itself. Wine's rpcrt4 then frees what the array holds after the
# call but never the array that the stub allocated for it: one block of the receiving process's task
# memory per call (in a client, per OnDataChange and OnReadComplete). Every such parameter is described
# by the reference pointer that widl writes to the array, and so freed with it.
file(READ ${FILE} content)
string(REGEX MATCHALL
       "/\\* [0-9]+ \\*/\n[ \t]+0x11, 0x0,[ \t]+/\\* FC_RP \\*/\n[ \t]+NdrFcShort\\(0x[0-9a-f]+\\),[ \t]+/\\* Offset= -[0-9]+ \\([0-9]+\\) \\*/"
       references "${content}")
set(fixed 0)
foreach(reference IN LISTS references)
  string(REGEX REPLACE "^/\\* ([0-9]+) .*$" "\\1" pointer "${reference}")
  string(REGEX REPLACE "^.*\\(([0-9]+)\\) \\*/$" "\\1" target "${reference}")
  # Complex arrays only (FC_BOGUS_ARRAY); simple ones are read in place from the buffer.
  if(NOT content MATCHES "/\\* ${target} \\([^\n]*\\) \\*/\n[ \t]+0x21,")
    continue()
  endif()
  math(EXPR pointerHex "${pointer}" OUTPUT_FORMAT HEXADECIMAL)
  math(EXPR targetHex "${target}" OUTPUT_FORMAT HEXADECIMAL)
  string(REGEX MATCHALL
         "NdrFcShort\\(0x10b\\),[^\n]*\n[ \t]+NdrFcShort\\(0x[0-9a-f]+\\),[^\n]*\n[ \t]+NdrFcShort\\(${targetHex}\\),\t/\\* type offset = ${target} \\*/"
         params "${content}")
  foreach(param IN LISTS params)
    string(REPLACE "NdrFcShort(0x10b),\t/* flags: must size, must free, in, simple ref */"
                   "NdrFcShort(0xb),\t/* flags: must size, must free, in */" described "${param}")
    string(REPLACE "NdrFcShort(${targetHex}),\t/* type offset = ${target} */"
                   "NdrFcShort(${pointerHex}),\t/* type offset = ${pointer} */" described "${described}")
    string(REPLACE "${param}" "${described}" content "${content}")
    math(EXPR fixed "${fixed} + 1")
  endforeach()
endforeach()
file(WRITE ${FILE} "${content}")
message(STATUS "${FILE}: ${fixed} [in] complex array parameters described by their reference pointer")
