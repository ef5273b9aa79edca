# Writes the files of the page into a source file: cmake -DOUTPUT=... -DFOLDER=... -P embed.cmake
set(files
  "/|text/html|index.html"
  "/app.js|text/javascript|app.js"
  "/app.css|text/css|app.css"
  "/uPlot.js|text/javascript|uPlot/uPlot.iife.min.js"
  "/uPlot.css|text/css|uPlot/uPlot.min.css")
set(arrays "")
set(table "")
set(number 0)
foreach(file IN LISTS files)
  string(REPLACE "|" ";" file "${file}")
  list(GET file 0 path)
  list(GET file 1 type)
  list(GET file 2 name)
  file(READ ${FOLDER}/${name} bytes HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
  string(APPEND arrays "constexpr unsigned char k_auc${number}[] = {${bytes}};\n")
  string(APPEND table "        {\"${path}\", \"${type}\", {reinterpret_cast<const char*>(k_auc${number}), sizeof k_auc${number}}},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${OUTPUT} "#include \"ServePage.h\"\n\nnamespace host {\n\nnamespace {\n\n${arrays}\n} // namespace\n
const std::vector<S_PAGE_FILE>& PageFiles()\n{\n    static const std::vector<S_PAGE_FILE> s_vFiles = {\n${table}    };\n    return s_vFiles;\n}\n\n} // namespace host\n")
