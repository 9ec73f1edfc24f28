# add_subfolders(): adds every direct subfolder of the current source folder that has a
# CMakeLists.txt, in name order, so parallel work on sibling libraries never edits a
# shared list.
function(add_subfolders)
  file(GLOB children LIST_DIRECTORIES true CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*)
  list(SORT children)
  foreach(child IN LISTS children)
    if(IS_DIRECTORY ${child} AND EXISTS ${child}/CMakeLists.txt)
      add_subdirectory(${child})
    endif()
  endforeach()
endfunction()
