# Writes a source file that holds files as texts. Run by diag_embed during the build:
#   cmake -D OUT=<file> -D HEADER=<header> -D NAMESPACE=<name> -D "TEXTS=<variable>;<file>;..." -P Embed.cmake

# Ends the raw strings. No file may hold it.
set(delimiter "EMBEDDED_TEXT")

set(source "#include \"${HEADER}\"\n\nnamespace ${NAMESPACE} {\n")
while(TEXTS)
  list(POP_FRONT TEXTS variable file)
  file(READ "${file}" text)
  string(FIND "${text}" ")${delimiter}" found)
  if(NOT found EQUAL -1)
    message(FATAL_ERROR "${file} holds )${delimiter}")
  endif()
  string(APPEND source "\nconst std::string_view ${variable} = R\"${delimiter}(${text})${delimiter}\";\n")
endwhile()
string(APPEND source "\n}  // namespace ${NAMESPACE}\n")
file(WRITE "${OUT}" "${source}")
