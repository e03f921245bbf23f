# Read by CPack before it makes a package. Without these tools it would only leave the dependencies
# out, and for another processor it would not find them.
if(CPACK_CROSS_COMPILED)
  message(FATAL_ERROR "Make the package on a Debian of that processor: its own packages are looked at.")
endif()
foreach(tool dpkg-shlibdeps file gzip)
  find_program(found_${tool} ${tool})
  if(NOT found_${tool})
    message(FATAL_ERROR "There is no ${tool}: packages.txt says which packages \"package\" needs.")
  endif()
endforeach()
