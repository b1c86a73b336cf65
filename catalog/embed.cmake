# Writes the message files as one array of string literals.
set(body "// Made from catalog/*.txt; edit those.\nextern const char* const kMessageCatalog[];\nconst char* const kMessageCatalog[] = {\n")
foreach(file IN LISTS FILES)
  file(READ ${file} text)
  string(APPEND body "R\"~~~(${text})~~~\",\n")
endforeach()
string(APPEND body "nullptr};\n")
file(WRITE ${OUT} "${body}")
