# The fuzz targets' names and sources, for the fuzzer and for the replay of their kept corpora.
set(fuzz_names parse_cache parse_stream key_reader key_editor netmask if_list addresses)

# fuzz_sources(target name): what a target consists of. A source of the library is among it where the functions are not
# exported.
function(fuzz_sources target name)
  set(netmask_internal sysinfo/netmask.cpp)
  set(if_list_internal socket/interface_list.cpp)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz/fuzz_${name}.cpp)
  foreach(source ${${name}_internal})
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/lib/${source})
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/lib)
  endforeach()
endfunction()
