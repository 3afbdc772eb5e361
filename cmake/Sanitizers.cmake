# CARDO_BUNDLE_SANITIZE: a list for -fsanitize, for example "address,undefined".
set(CARDO_BUNDLE_SANITIZE "" CACHE STRING "Sanitizers of the whole build")
option(CARDO_BUNDLE_COVERAGE "Instrument for coverage" OFF)
if(CARDO_BUNDLE_SANITIZE)
  add_compile_options(-fsanitize=${CARDO_BUNDLE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${CARDO_BUNDLE_SANITIZE})
endif()
if(CARDO_BUNDLE_COVERAGE)
  # Tests of threads count at once.
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
