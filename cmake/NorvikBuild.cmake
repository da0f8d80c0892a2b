# Compiler settings and the small vocabulary that the folders' CMakeLists use.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
# The same in the build tree and installed: a path that is to be changed at installation gets a colon at its end, and the
# empty part behind it means the current folder, so that programs would load libraries from wherever they are started.
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../lib")
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Werror)
# g++ 12 sees overlapping copies in `"literal" + std::string&&` that are not there (GCC bug 105651, gone in 13).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
add_compile_definitions(_FILE_OFFSET_BITS=64)
if(NORVIK_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  # What the sanitizers do not see: an element of an empty container, the value of an empty optional.
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  # The checks put between the statements hide from g++ what is initialised; the ordinary build keeps the warning.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
else()
  add_compile_definitions($<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
  add_compile_options(-fstack-protector-strong)
endif()
if(NORVIK_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# One layer of the library: the sources of a folder as objects. Layers are linked together into libNorvikCore.so, and
# each test program links its layer and those below it, so that a layer is proved without the ones above.
function(norvik_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 LAYER "" "" "USES;LIBRARIES;SOURCES")
  add_library(${name} OBJECT ${LAYER_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(${name} PUBLIC ${LAYER_LIBRARIES})
  foreach(lower IN LISTS LAYER_USES)
    get_target_property(below ${lower} INTERFACE_LINK_LIBRARIES)
    if(below)
      target_link_libraries(${name} PUBLIC ${below})
    endif()
  endforeach()
endfunction()

# The objects of layers that are linked together, for what is made of them.
function(norvik_layer_objects variable)
  set(objects)
  foreach(layer IN LISTS ARGN)
    list(APPEND objects $<TARGET_OBJECTS:norvik_${layer}>)
  endforeach()
  set(${variable} ${objects} PARENT_SCOPE)
endfunction()
