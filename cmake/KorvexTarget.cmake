# What every target of the tree has in common: language level, warnings, and the instrumentation of the preset.

include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)

# Hardening, in every build: overruns of arrays on the stack are noticed, the stack grows a page at a time, and jumps and
# returns end where they may (the last two are one thing on two kinds of processors).
set(korvex_hardening)
set(CMAKE_REQUIRED_FLAGS -Werror)  # clang takes those of other processors, with a warning
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "KORVEX_HAS${flag}" has_flag)
  check_cxx_compiler_flag(${flag} ${has_flag})
  if(${has_flag})
    list(APPEND korvex_hardening ${flag})
  endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)

function(korvex_target target)
  target_compile_features(${target} PRIVATE cxx_std_20 c_std_11)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS ON C_EXTENSIONS ON)
  target_compile_definitions(${target} PRIVATE _GNU_SOURCE _FILE_OFFSET_BITS=64)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wuseless-cast>
    # g++ 12 finds overlaps in std::string's own operator+ where it is optimised.
    $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<CONFIG:Release>>:-Wno-restrict>
    $<$<BOOL:${KORVEX_WERROR}>:-Werror>
    ${korvex_hardening}
    # libc's checks of sizes need an optimised build, and would be calls that the tests do not know in one of theirs.
    $<$<CONFIG:Release>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>
    # No path of the build folder in what is built: two builds in two folders are the same.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  endif()
  if(KORVEX_SANITIZE)
    # Without the vptr check: it needs the C++ runtime, which the library does without, and it makes system calls of its
    # own, which tests count.
    target_compile_options(${target} PRIVATE -fsanitize=${KORVEX_SANITIZE} -fno-sanitize=vptr -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${KORVEX_SANITIZE})
  endif()
endfunction()
