# Read by CPack before it makes a package. Without these tools it would only leave the dependencies
# out.
foreach(tool dpkg-shlibdeps file gzip)
  find_program(found_${tool} ${tool})
  if(NOT found_${tool})
    message(FATAL_ERROR "There is no ${tool}: packages.txt says which packages \"package\" needs.")
  endif()
endforeach()
