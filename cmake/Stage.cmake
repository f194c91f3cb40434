# The staged tree holds the programs as they would be installed: stripped, with their debug
# information aside in the symbols folder under the same relative name.
set(TKDAST_STAGE_DIR
    "${CMAKE_BINARY_DIR}/stage"
    CACHE PATH "Folder that receives the runnable tree")
set(TKDAST_SYMBOLS_DIR
    "${CMAKE_BINARY_DIR}/symbols"
    CACHE PATH "Folder that receives the debug information")

# tkdast_stage(<target> [<subfolder>]): puts the target's program or module into the staged tree,
# under the target's OUTPUT_NAME and SUFFIX, which have to be set before.
function(tkdast_stage target)
  get_target_property(type ${target} TYPE)
  get_target_property(name ${target} OUTPUT_NAME)
  if(NOT name)
    set(name ${target})
  endif()
  get_target_property(suffix ${target} SUFFIX)
  if(suffix)
    string(APPEND name ${suffix})
  elseif(type STREQUAL EXECUTABLE)
    string(APPEND name .exe)
  else()
    string(APPEND name .dll)
  endif()
  cmake_path(APPEND TKDAST_STAGE_DIR ${ARGV1} ${name} OUTPUT_VARIABLE staged)
  cmake_path(APPEND TKDAST_SYMBOLS_DIR ${ARGV1} ${name}.debug OUTPUT_VARIABLE symbols)
  cmake_path(GET staged PARENT_PATH staged_folder)
  cmake_path(GET symbols PARENT_PATH symbols_folder)

  # As by-products, the staged files come back when somebody has removed them.
  if(CMAKE_OBJCOPY AND NOT MSVC)
    add_custom_command(
      TARGET ${target}
      POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E make_directory "${staged_folder}" "${symbols_folder}"
      COMMAND ${CMAKE_OBJCOPY} --only-keep-debug "$<TARGET_FILE:${target}>" "${symbols}"
      COMMAND ${CMAKE_OBJCOPY} --strip-all "--add-gnu-debuglink=${symbols}" "$<TARGET_FILE:${target}>"
              "${staged}"
      BYPRODUCTS "${staged}" "${symbols}"
      VERBATIM)
  else()
    add_custom_command(
      TARGET ${target}
      POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E make_directory "${staged_folder}"
      COMMAND ${CMAKE_COMMAND} -E copy_if_different "$<TARGET_FILE:${target}>" "${staged}"
      BYPRODUCTS "${staged}"
      VERBATIM)
  endif()
endfunction()

# tkdast_stage_file(<file>): puts a file as it is into the root of the staged tree.
function(tkdast_stage_file file)
  get_filename_component(name "${file}" NAME)
  get_filename_component(path "${file}" ABSOLUTE)
  set(staged "${TKDAST_STAGE_DIR}/${name}")
  add_custom_command(
    OUTPUT "${staged}"
    COMMAND ${CMAKE_COMMAND} -E make_directory "${TKDAST_STAGE_DIR}"
    COMMAND ${CMAKE_COMMAND} -E copy "${path}" "${staged}"
    DEPENDS "${path}"
    VERBATIM)
  add_custom_target(stage_${name} ALL DEPENDS "${staged}")
endfunction()
