# The library: one set of objects, linked once as the shared library that ships and once as a static
# one that lets tests reach what is not exported.

# kvl_family(<name> <source>...): the objects of one folder of src/. A source whose name ends in an
# instruction set is compiled for it and checked to define no weak symbol.
function(kvl_family name)
  list(TRANSFORM ARGN PREPEND src/${name}/)
  add_library(kvl_${name} OBJECT ${ARGN})
  target_include_directories(kvl_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src
                                                ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(kvl_${name} PUBLIC KVL_STATIC)
  target_compile_options(kvl_${name} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Werror
                                             -ffp-contract=off)
  if(WIN32)
    target_compile_definitions(kvl_${name} PUBLIC WIN32_LEAN_AND_MEAN NOMINMAX)
  endif()
  set_target_properties(kvl_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON
                                               CXX_VISIBILITY_PRESET hidden
                                               VISIBILITY_INLINES_HIDDEN ON)
  target_link_libraries(kvl_${name} PUBLIC OpenMP::OpenMP_CXX)

  foreach(set ssse3 sse41 avx2)
    set(option_sse41 -msse4.1)
    set(option_ssse3 -mssse3)
    set(option_avx2 -mavx2)
    if(WIN32)
      # GCC aligns the stack to 16 bytes only there, but spills wide registers as if to 32.
      list(APPEND option_avx2 -Wa,-muse-unaligned-vector-move)
    endif()
    set(vector ${ARGN})
    list(FILTER vector INCLUDE REGEX "_${set}\\.cpp$")
    set_source_files_properties(${vector} PROPERTIES COMPILE_OPTIONS "${option_${set}}")
  endforeach()
  set_property(GLOBAL APPEND PROPERTY KVL_FAMILIES ${name})
endfunction()

if(WIN32)
  set(platform_sources platform_windows.cpp)
else()
  set(platform_sources platform_linux.cpp linux_topology.cpp)
endif()
kvl_family(core
  bitmap.cpp
  cpu_features.cpp
  debug_output.cpp
  exact_math.cpp
  initialise.cpp
  instruction_set.cpp
  parallel.cpp
  pixel_memory.cpp
  processor_info.cpp
  rounding.cpp
  ${platform_sources})
kvl_family(resize
  resize_avx2.cpp
  resize_axis.cpp
  resize_execution.cpp
  resize_kernels.cpp
  resize_one_call.cpp
  resize_passes.cpp
  resize_rows.cpp
  resize_setup.cpp
  resize_ssse3.cpp
  resize_strips.cpp
  row_interpolation.cpp
  row_interpolation_avx2.cpp)
kvl_family(filters
  averaging_blur.cpp
  averaging_blur_avx2.cpp
  classic_blur.cpp
  classic_blur_avx2.cpp
  directional_blur.cpp
  directional_blur_avx2.cpp
  gaussian_blur.cpp
  gaussian_blur_avx2.cpp
  gaussian_blur_ssse3.cpp
  modified_selective_blur.cpp
  one_pass.cpp
  radial_blur.cpp
  selective_blur.cpp
  selective_mean.cpp
  selective_mean_avx2.cpp
  selective_sharpen.cpp
  selective_sharpen_simple_avx2.cpp
  selective_sharpen_smooth_avx2.cpp
  similarity_average.cpp
  similarity_average_avx2.cpp
  simple_sharpen.cpp
  simple_sharpen_avx2.cpp
  transpose_rgb24.cpp
  transpose_rgb24_avx2.cpp
  zoom_blur.cpp)
kvl_family(convert
  combine_half_frames.cpp
  halving_avx2.cpp
  halving_kernels.cpp
  halving_ssse3.cpp
  media_subtype.cpp
  packed_dib.cpp
  rgb24_to_y.cpp
  rgb24_to_yuy2.cpp
  rgb_blocks.cpp
  rgb_blocks_avx2.cpp
  rgb_blocks_ssse3.cpp
  rgb_bmp_to_rgb_frame.cpp
  rgb_bmp_to_yuyv_frame.cpp
  rgb_to_yuv.cpp
  rty_convert.cpp
  shrink_to_half.cpp
  target_frame.cpp
  yuv422_row.cpp
  yuv_to_rgb.cpp
  yuv_to_rgb_avx2.cpp
  yuv_to_rgb_ssse3.cpp)
kvl_family(alpha
  colour_and_alpha.cpp
  colour_key.cpp
  colour_key_avx2.cpp
  colour_shift.cpp
  colour_shift_avx2.cpp
  colour_shift_ssse3.cpp
  hue_spill.cpp
  premultiply.cpp
  premultiply_avx2.cpp
  premultiply_ssse3.cpp
  reverse_premultiply.cpp
  reverse_premultiply_avx2.cpp
  reverse_premultiply_ssse3.cpp
  rows.cpp)
kvl_family(warp
  bands.cpp
  enlarge.cpp
  host_image.cpp
  matrix4x4.cpp
  resolve_avx2.cpp
  rim.cpp
  source_box.cpp
  visible_region.cpp
  warp.cpp
  warp_kernels.cpp
  warp_kernels_avx2.cpp
  warp_kernels_ssse3.cpp)
kvl_family(correlation
  block_measures.cpp
  block_measures_avx2.cpp
  block_measures_ssse3.cpp
  brightening_search.cpp
  grey_conversion.cpp
  grey_row_avx2.cpp
  grey_row_ssse3.cpp
  match_score.cpp
  product_avx2.cpp
  product_search.cpp
  product_ssse3.cpp
  squared_search.cpp
  sub_pixel_search.cpp)
kvl_family(jpeg
  bitmap_kind.cpp
  coder_call.cpp
  component_rows.cpp
  decode_rows.cpp
  decode_rows_avx2.cpp
  decompress.cpp
  encode_rows.cpp
  encode_rows_avx2.cpp
  jpeg_to_dib.cpp
  layout.cpp
  mcu_reader.cpp
  mcu_writer.cpp
  read_picture.cpp
  write_raw_image.cpp)
kvl_family(exports
  alpha.cpp
  convert.cpp
  correlation.cpp
  filters.cpp
  halving.cpp
  jpeg.cpp
  library.cpp
  resize.cpp
  warp.cpp)

get_property(families GLOBAL PROPERTY KVL_FAMILIES)
list(TRANSFORM families PREPEND kvl_)

add_library(kvl SHARED)
add_library(kvl::kvl ALIAS kvl)
add_library(kvl_static STATIC)
target_link_libraries(kvl PRIVATE ${families})
target_link_libraries(kvl_static PUBLIC ${families})
target_include_directories(kvl INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                         $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

# The list of exported names becomes what each linker takes.
set(exports_list ${PROJECT_SOURCE_DIR}/src/exports/exports.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${exports_list})
file(STRINGS ${exports_list} exports)
if(WIN32)
  list(JOIN exports "\n  " names)
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/kvl.def CONTENT "EXPORTS\n  ${names}\n")
  target_sources(kvl PRIVATE ${CMAKE_BINARY_DIR}/kvl.def)
  set_target_properties(kvl PROPERTIES PREFIX "" IMPORT_PREFIX "lib")

  # The compiler's run-time DLLs travel with kvl.dll.
  foreach(dll libgomp-1 libgcc_s_seh-1 libstdc++-6 libwinpthread-1)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}.dll
                    OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    list(APPEND KVL_RUNTIME_DLLS ${path})
  endforeach()
  file(COPY ${KVL_RUNTIME_DLLS} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
else()
  list(JOIN exports ";\n    " names)
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/kvl.map
       CONTENT "{\n  global:\n    ${names};\n  local:\n    *;\n};\n")
  target_link_options(kvl PRIVATE -Wl,--version-script=${CMAKE_BINARY_DIR}/kvl.map -Wl,-z,defs)
  if(KVL_SANITIZE MATCHES "thread|fuzzer")
    target_link_options(kvl PRIVATE -Wl,-z,undefs)
  endif()
  set_target_properties(kvl PROPERTIES LINK_DEPENDS ${CMAKE_BINARY_DIR}/kvl.map
                                       VERSION ${PROJECT_VERSION}
                                       SOVERSION ${PROJECT_VERSION_MAJOR})
endif()
