# Writes OUTPUT, a header that changes whenever a package of headers does; run by the build.
cmake_minimum_required(VERSION 3.25)
find_program(dpkg_query dpkg-query)
set(packages "")
if(dpkg_query)
  execute_process(COMMAND "${dpkg_query}" --show "*-dev" OUTPUT_VARIABLE packages ERROR_QUIET)
endif()
string(SHA1 packages "${packages}")
file(CONFIGURE OUTPUT "${OUTPUT}" CONTENT "// Packages of headers: ${packages}\n" @ONLY)
