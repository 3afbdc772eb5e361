# Samples as a caller has them: whoever links these brings the library.
add_library(cardo_samples STATIC determinism/figures.cpp determinism/samples.cpp golden/scene.cpp
  golden/networks.cpp)
target_link_libraries(cardo_samples PUBLIC cardo_reference)
target_compile_options(cardo_samples PRIVATE -ffp-contract=off)
cardo_warnings(cardo_samples)

# The library with one variant of the kernels each: the two files that choose are compiled anew
# and told less about the machine than it has. The widest variant is the library itself.
function(cardo_variant variant supports)
  set(objects "$<FILTER:$<TARGET_OBJECTS:cardo_engine>,EXCLUDE,_kernels[.]cpp>")
  add_library(cardo_bundle_${variant} SHARED ${objects}
    ${PROJECT_SOURCE_DIR}/src/linalg/dense_kernels.cpp
    ${PROJECT_SOURCE_DIR}/src/linalg/leading_kernels.cpp)
  target_compile_features(cardo_bundle_${variant} PUBLIC cxx_std_20)
  target_compile_options(cardo_bundle_${variant} PRIVATE
    -ffp-contract=fast "-D__builtin_cpu_supports(name)=${supports}")
  set_target_properties(cardo_bundle_${variant} PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(cardo_bundle_${variant} PRIVATE ${PROJECT_SOURCE_DIR}/src)
endfunction()
cardo_variant(portable "0")
# "avx512f" is the one long name.
cardo_variant(avx2 "(sizeof(name)<6&&__builtin_cpu_supports(name))")

foreach(variant portable avx2 widest)
  add_executable(cardo_figures_${variant} determinism/print_figures.cpp)
  target_link_libraries(cardo_figures_${variant} PRIVATE cardo_samples)
  cardo_warnings(cardo_figures_${variant})
endforeach()
target_link_libraries(cardo_figures_portable PRIVATE cardo_bundle_portable)
target_link_libraries(cardo_figures_avx2 PRIVATE cardo_bundle_avx2)
target_link_libraries(cardo_figures_widest PRIVATE cardo_bundle)

# A locale that writes numbers as German processes do, made of the sources here: no locale needs
# to be installed. localedef complains about the categories that are left out and returns 1.
find_program(CARDO_LOCALEDEF localedef REQUIRED)
set(locale_dir ${CMAKE_CURRENT_BINARY_DIR}/locale)
file(MAKE_DIRECTORY ${locale_dir})
execute_process(
  COMMAND ${CARDO_LOCALEDEF} -c --quiet -i ${CMAKE_CURRENT_SOURCE_DIR}/determinism/locale/de_DE.locale
    -f ${CMAKE_CURRENT_SOURCE_DIR}/determinism/locale/ascii.charmap ${locale_dir}/de_DE
  OUTPUT_QUIET ERROR_QUIET)

cardo_test(determinism cardo_samples cardo_bundle)
add_dependencies(test_determinism cardo_figures_portable cardo_figures_avx2 cardo_figures_widest)
target_sources(test_determinism PRIVATE golden/golden_run.cpp)
target_compile_definitions(test_determinism PRIVATE
  CARDO_LOCALE_DIR="${locale_dir}"
  CARDO_FIGURES_PORTABLE="$<TARGET_FILE:cardo_figures_portable>"
  CARDO_FIGURES_AVX2="$<TARGET_FILE:cardo_figures_avx2>"
  CARDO_FIGURES_WIDEST="$<TARGET_FILE:cardo_figures_widest>")
# std::regex of g++ 12 warns under the address sanitizer.
target_compile_options(test_determinism PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
if(CARDO_BUNDLE_BUILD_CLI)
  target_sources(test_determinism PRIVATE determinism/result_tables.cpp)
  add_dependencies(test_determinism cardo-bundle)
  target_compile_definitions(test_determinism PRIVATE
    CARDO_BUNDLE_PROGRAM="$<TARGET_FILE:cardo-bundle>")
endif()

cardo_test(threads cardo_samples cardo_bundle)
target_sources(test_threads PRIVATE golden/golden_run.cpp)
target_compile_options(test_threads PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)

# Many jobs in one process: here a few, ten thousand by `make soak`. Sanitizers keep freed memory,
# so there is nothing to watch under them.
add_executable(cardo_soak soak/cardo_soak.cpp)
target_link_libraries(cardo_soak PRIVATE cardo_samples cardo_bundle)
cardo_warnings(cardo_soak)
if(NOT CARDO_BUNDLE_SANITIZE)
  add_test(NAME Soak.MemoryStaysConstant COMMAND cardo_soak 300)
endif()
