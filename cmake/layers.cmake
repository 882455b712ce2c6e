# The source folders form a ladder of static libraries. Each layer sees, through a folder of its
# own in the build tree (build/<preset>/layers/<layer>/), only its own sources and the folders of
# the layers it links, directly or through them: an #include that points up or sideways finds no
# file and the build stops there.
#
#   tveject_layer(text FOLDER text PUBLIC os)         # a header of text exposes an os type
#   tveject_layer(xml FOLDER xml PRIVATE text)
#
# The library is tveject_<name>; its sources are the folder's *.cpp (less EXCLUDE, a regular
# expression on the path) plus SOURCES.
function(tveject_layer name)
  cmake_parse_arguments(L "" "FOLDER;EXCLUDE" "PUBLIC;PRIVATE;SOURCES" ${ARGN})
  set(dir ${PROJECT_SOURCE_DIR}/src/${L_FOLDER})
  file(GLOB sources CONFIGURE_DEPENDS ${dir}/*.cpp)
  if(L_EXCLUDE)
    list(FILTER sources EXCLUDE REGEX "${L_EXCLUDE}")
  endif()
  add_library(tveject_${name} STATIC ${sources} ${L_SOURCES})

  set(folders ${L_FOLDER})
  foreach(below ${L_PUBLIC} ${L_PRIVATE})
    get_target_property(seen tveject_${below} TVEJECT_FOLDERS)
    list(APPEND folders ${seen})
  endforeach()
  list(REMOVE_DUPLICATES folders)
  set_target_properties(tveject_${name} PROPERTIES TVEJECT_FOLDERS "${folders}")

  set(view ${CMAKE_BINARY_DIR}/layers/${name})
  file(REMOVE_RECURSE ${view})
  foreach(folder ${folders})
    get_filename_component(parent ${view}/${folder} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/src/${folder} ${view}/${folder} SYMBOLIC)
  endforeach()
  target_include_directories(tveject_${name} PUBLIC ${view})
  foreach(below ${L_PUBLIC})
    target_link_libraries(tveject_${name} PUBLIC tveject_${below})
  endforeach()
  foreach(below ${L_PRIVATE})
    target_link_libraries(tveject_${name} PRIVATE tveject_${below})
  endforeach()
endfunction()
