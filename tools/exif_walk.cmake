# The host-side walker that finds EXIF and GPS directories in JPEG and TIFF files. Included
# from tools/ and, when the tools are not built, from the metadata tests.
if(NOT TARGET lv_exif_walk)
  add_library(lv_exif_walk STATIC ${CMAKE_CURRENT_LIST_DIR}/exif_walk.cpp)
  target_include_directories(lv_exif_walk PUBLIC ${CMAKE_CURRENT_LIST_DIR})
  target_link_libraries(lv_exif_walk PUBLIC lumivantor_static)
endif()
