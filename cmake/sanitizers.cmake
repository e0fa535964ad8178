if(LIDCAM_SANITIZE)
  # Without the check of dynamic types: it needs run-time type information, which kernel code lacks.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(LIDCAM_THREAD_SANITIZER)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
if(LIDCAM_FUZZ)
  # Everything is instrumented for the fuzzing engine, which only the fuzz targets link, and counts
  # executed lines, for scripts/fuzz.
  add_compile_options(-fsanitize=fuzzer-no-link -fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()
