# From a build's compile_commands.json: one with fewer entries, in FOLDER. All of the tree's sources with the same flags are
# one unit, a file in FOLDER that includes them, for nearly all the work on a source is to read its headers. What the build
# compiles may itself be units of a few sources. Prints the units' names.
# Variables: root (the tree's folder), folder.

function unit_of(key, target, file) {
  if (!(key in units)) units[key] = (index(file, root "/tests/") == 1 ? "tests/" : "") target (uses[target]++ ? uses[target] : "") ".cpp"
  return units[key]
}

function add(file) {
  if (index(file, root "/") != 1 || index(file, root "/build/") == 1) return
  if (!(file in commands)) files[++count] = file
  commands[file] = command  # Of a source that is built twice (the platform layer), the tests' build.
}

/^  "command":/ {
  command = $0
  sub(/^  "command": "/, "", command)
}

/^  "file":/ {
  file = $0
  gsub(/^  "file": "|",?$/, "", file)
  if (file !~ /\/Unity\/unity_[^\/]*$/) add(file)
  else while ((getline line < file) > 0) if (sub(/^#include "/, "", line) && sub(/"$/, "", line)) add(line)
}

END {
  for (i = 1; i <= count; ++i) {
    flags = target = commands[files[i]]
    sub(/ -o [^ ]+ -c .*/, "", flags)
    # What clang does not know, knows by another name, or reads for itself.
    gsub(/-std=c\+\+23/, "-std=c++2b", flags)
    gsub(/ -Wduplicated-[a-z]*| -Wlogical-op| --param=[^ ]*| -Winvalid-pch| -include [^ ]*\/cmake_pch\.hxx/, "", flags)
    sub(/\.dir\/[^ ]+ -c .*/, "", target)
    sub(/.*\/CMakeFiles\//, "", target)
    unit = unit_of(target " " flags, target, files[i])
    text[unit] = text[unit] "#include \"" files[i] "\"\n"
    entry[unit] = sprintf("{\n  \"directory\": \"%s\",\n  \"command\": \"%s -c \\\"%s/%s\\\"\",\n  \"file\": \"%s/%s\"\n}", folder, flags,
      folder, unit, folder, unit)
  }
  database = folder "/compile_commands.json"
  separator = "[\n"
  for (unit in text) {
    printf "%s", text[unit] > (folder "/" unit)
    printf "%s%s", separator, entry[unit] > database
    separator = ",\n"
    print unit
  }
  print "\n]" > database
}
