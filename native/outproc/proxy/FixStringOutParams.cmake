# cmake -DFILE=<name>_p.c -P FixStringOutParams.cmake
#
# widl 8 describes an [out] or [in, out] string pointer parameter (LPWSTR*) by the string pointer
# itself, skipping the reference pointer that it writes right before it in the type format string;
# Wine's rpcrt4 then marshals the stack slot instead of the string, so the string arrives as NULL
# (out) or the call fails with ERROR_NOACCESS (in, out). Every such parameter is pointed at its
# reference pointer, as the description of any other pointer-to-pointer parameter is.
file(READ ${FILE} content)
string(REGEX MATCHALL
       "/\\* [0-9]+ \\([A-Za-z_]+ \\*\\) \\*/\n[ \t]+0x11, 0x1[0-9a-f],[^\n]*\n[ \t]+NdrFcShort\\(0x2\\),[ \t]+/\\* Offset= 2 \\([0-9]+\\) \\*/"
       references "${content}")
set(fixed 0)
foreach(reference IN LISTS references)
  string(REGEX REPLACE "^/\\* ([0-9]+) .*$" "\\1" pointer "${reference}")
  string(REGEX REPLACE "^.*Offset= 2 \\(([0-9]+)\\) \\*/$" "\\1" target "${reference}")
  math(EXPR pointerHex "${pointer}" OUTPUT_FORMAT HEXADECIMAL)
  math(EXPR targetHex "${target}" OUTPUT_FORMAT HEXADECIMAL)
  set(from "NdrFcShort(${targetHex}),\t/* type offset = ${target} */")
  set(to "NdrFcShort(${pointerHex}),\t/* type offset = ${pointer} */")
  string(FIND "${content}" "${from}" at)
  if(at GREATER -1)
    string(REPLACE "${from}" "${to}" content "${content}")
    math(EXPR fixed "${fixed} + 1")
  endif()
endforeach()
file(WRITE ${FILE} "${content}")
message(STATUS "${FILE}: ${fixed} string pointer parameters described by their reference pointer")
