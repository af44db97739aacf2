# A shared library's private dependencies need no look-up: the generated files are all there is to include.
include(${CMAKE_CURRENT_LIST_DIR}/facetboxTargets.cmake)

# The one component, `io`, may not be installed.
include(${CMAKE_CURRENT_LIST_DIR}/facetboxIoTargets.cmake OPTIONAL RESULT_VARIABLE facetbox_io_FOUND)
foreach(component IN LISTS facetbox_FIND_COMPONENTS)
  if(NOT TARGET facetbox::${component})
    set(facetbox_NOT_FOUND_MESSAGE "facetbox: the component '${component}' is not installed")
    set(facetbox_FOUND FALSE)
  endif()
endforeach()
