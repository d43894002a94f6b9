# Applies VORX_SANITIZE to every target: address,undefined for the asan preset, thread for tsan,
# fuzzer-no-link for the fuzz preset (the fuzz targets add -fsanitize=fuzzer themselves).
if(VORX_SANITIZE)
  set(_vorx_san "-fsanitize=${VORX_SANITIZE}" -fno-omit-frame-pointer)
  if(VORX_SANITIZE MATCHES "undefined")
    list(APPEND _vorx_san -fno-sanitize-recover=undefined)
  endif()
  add_compile_options(${_vorx_san})
  if(NOT VORX_SANITIZE MATCHES "fuzzer")
    add_link_options(${_vorx_san})
  endif()
endif()
