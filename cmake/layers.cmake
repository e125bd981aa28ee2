# One library a folder of src/, and what is made of them.

# ostrand_add_layer(<name> [DEPENDS <layer or target>...])
#
# Makes the static library `ostrand_<name>` (alias `ostrand::layer_<name>`) of all of src/<name>. It
# is what tests link: every symbol is within reach. A folder without sources gives a library of
# headers; a folder that does not exist gives nothing.
function(ostrand_add_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 LAYER "" "" "DEPENDS")
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${name}/*.cpp)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${name}/*.h)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  if(NOT sources AND NOT headers)
    return()
  endif()

  if(sources)
    add_library(ostrand_${name} STATIC ${sources} ${headers})
    set(scope PUBLIC)
    set_target_properties(ostrand_${name} PROPERTIES OUTPUT_NAME ostrand_layer_${name})
    if(OSTRAND_FUZZ)
      target_compile_options(ostrand_${name} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
  else()
    add_library(ostrand_${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(ostrand_${name} ${scope} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(ostrand_${name} ${scope} Threads::Threads)
  foreach(depend IN LISTS LAYER_DEPENDS)
    if(TARGET ostrand_${depend})
      target_link_libraries(ostrand_${name} ${scope} ostrand_${depend})
    elseif(TARGET ${depend})
      target_link_libraries(ostrand_${name} ${scope} ${depend})
    endif()
  endforeach()
  add_library(ostrand::layer_${name} ALIAS ostrand_${name})
endfunction()

# ostrand_add_bundle(<name> LAYERS <layer>... [DEPENDS <bundle>...])
#
# Makes `ostrand::<name>`, one library (libostrand_<name>) of the objects of the layers: shared or
# static as BUILD_SHARED_LIBS says. A program links bundles or layers, never both: it would hold
# two copies of everything.
function(ostrand_add_bundle name)
  cmake_parse_arguments(PARSE_ARGV 1 BUNDLE "" "" "LAYERS;DEPENDS")
  set(objects "")
  foreach(layer IN LISTS BUNDLE_LAYERS)
    if(TARGET ostrand_${layer})
      get_target_property(type ostrand_${layer} TYPE)
      if(type STREQUAL STATIC_LIBRARY)
        list(APPEND objects $<TARGET_OBJECTS:ostrand_${layer}>)
      endif()
    endif()
  endforeach()
  if(NOT objects)
    return()
  endif()

  set(target ostrand_bundle_${name})
  add_library(${target} ${objects})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ostrand_${name} EXPORT_NAME ${name}
                                             LINKER_LANGUAGE CXX
                                             VERSION ${PROJECT_VERSION}
                                             SOVERSION ${PROJECT_VERSION_MAJOR}
                                             INSTALL_RPATH "$ORIGIN")  # they find each other
  # A shared library says itself what it needs; nothing may be left to the program.
  target_link_options(${target} PRIVATE $<$<NOT:$<BOOL:${OSTRAND_SANITIZE}>>:-Wl,--no-undefined>)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>
                                              $<INSTALL_INTERFACE:include/ostrand>)
  target_compile_features(${target} PUBLIC cxx_std_17)
  target_link_libraries(${target} PUBLIC Threads::Threads)
  foreach(depend IN LISTS BUNDLE_DEPENDS)
    if(TARGET ostrand_bundle_${depend})
      target_link_libraries(${target} PUBLIC ostrand_bundle_${depend})
    endif()
  endforeach()
  add_library(ostrand::${name} ALIAS ${target})
endfunction()

# ostrand_add_program(<name> MAIN <source> LAYER <layer>)
#
# A command whose main() is kept apart from its layer, so that tests can link the rest.
function(ostrand_add_program name)
  cmake_parse_arguments(PARSE_ARGV 1 PROGRAM "" "MAIN;LAYER" "")
  file(GLOB main CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${PROGRAM_MAIN})
  if(NOT main OR NOT TARGET ostrand_${PROGRAM_LAYER})
    return()
  endif()
  add_executable(${name} ${main})
  target_compile_definitions(${name} PRIVATE OSTRAND_VERSION="${PROJECT_VERSION}")
  target_link_libraries(${name} PRIVATE ostrand_${PROGRAM_LAYER})
endfunction()
