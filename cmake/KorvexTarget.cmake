# What every target of the tree has in common: language level, warnings, and the instrumentation of the preset.

function(korvex_target target)
  target_compile_features(${target} PRIVATE cxx_std_20 c_std_11)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS ON C_EXTENSIONS ON)
  target_compile_definitions(${target} PRIVATE _GNU_SOURCE _FILE_OFFSET_BITS=64)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wuseless-cast>
    $<$<BOOL:${KORVEX_WERROR}>:-Werror>)
  if(KORVEX_SANITIZE)
    # Without the vptr check: it needs the C++ runtime, which the library does without, and it makes system calls of its
    # own, which tests count.
    target_compile_options(${target} PRIVATE -fsanitize=${KORVEX_SANITIZE} -fno-sanitize=vptr -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${KORVEX_SANITIZE})
  endif()
endfunction()
