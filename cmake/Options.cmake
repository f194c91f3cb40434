option(TKDAST_FUZZ "Stop the programs at undefined behaviour, for scripts/fuzz" OFF)

# tkdast_options: what every target of this tree is compiled and linked with.
add_library(tkdast_options INTERFACE)

target_compile_features(tkdast_options INTERFACE cxx_std_20)
target_include_directories(tkdast_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(
  tkdast_options
  INTERFACE UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)

if(MSVC)
  target_compile_options(
    tkdast_options
    INTERFACE $<$<COMPILE_LANGUAGE:C,CXX>:/W4 /WX /utf-8 /permissive- /Zc:__cplusplus /guard:cf>)
  target_link_options(tkdast_options INTERFACE /guard:cf /DYNAMICBASE /NXCOMPAT /HIGHENTROPYVA)
else()
  target_compile_options(
    tkdast_options
    INTERFACE $<$<COMPILE_LANGUAGE:C,CXX>:-Wall -Wextra -Wpedantic -Werror>
              # DWARF 4 is the newest that dbghelp reads under Wine, where the tests print their stacks.
              $<$<COMPILE_LANGUAGE:C,CXX>:-g1 -gdwarf-4 -fstack-protector-strong>)
  # A range error of the standard library stops the program instead of reading on.
  target_compile_definitions(tkdast_options INTERFACE _GLIBCXX_ASSERTIONS)
  if(TKDAST_FUZZ)
    target_compile_options(tkdast_options
                           INTERFACE $<$<COMPILE_LANGUAGE:C,CXX>:-fsanitize=undefined -fsanitize-undefined-trap-on-error>)
  endif()
  # Addresses above 4 GB give the loader the whole range to choose from. Static, because a machine
  # of a user has no compiler runtime.
  target_link_options(
    tkdast_options
    INTERFACE
    -static
    -fstack-protector-strong
    -Wl,--dynamicbase,--nxcompat,--high-entropy-va
    -Wl,--image-base,$<IF:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>,0x140000000,0x180000000>)
  # Resource scripts are UTF-8.
  string(APPEND CMAKE_RC_FLAGS " -c 65001")
endif()
