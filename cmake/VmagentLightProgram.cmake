# vmagent_light_program(<target>)
#
# A program that is started often, and so has itself what is ours and the C++ library: most of such a
# start would be the search for their symbols. The C library, SQLite and the like stay shared, for they
# are mended by the system's updates. What a sanitizer watches keeps its C++ library, and the
# sanitizer's symbols are there for all.
function(vmagent_light_program target)
  set_target_properties(${target} PROPERTIES VMAGENT_OWN_RUNTIME ON)
  target_link_options(${target} PRIVATE -Wl,--gc-sections,-z,relro,-z,now)
  if(NOT VMAGENT_SANITIZE)
    target_link_options(${target} PRIVATE
      -static-libstdc++ -static-libgcc -Wl,--exclude-libs,ALL)
  endif()
endfunction()
