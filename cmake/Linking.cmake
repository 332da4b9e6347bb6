# How the program binds its libraries.
#
# A CGI program pays its whole start-up on every request, and in a dynamically
# linked build most of that start-up is the loader mapping libssl, libcrypto
# and libstdc++ and binding their symbols. So by default OpenSSL (its static
# archives) and the C++ run time are linked into the programs themselves;
# glibc stays shared (name resolution and the locale data need it) and the
# programs stay position-independent executables. bench/run measures the
# choices against each other.
#
# TESSAVANT_STATIC_LINK=OFF links everything dynamically, for distributions
# whose policy requires it.
option(TESSAVANT_STATIC_LINK
       "Link OpenSSL, libstdc++ and libgcc statically into the programs (glibc stays shared)" ON)

# PIE from the POSITION_INDEPENDENT_CODE property, not from the compiler's
# default, so that the choice is explicit here.
include(CheckPIESupported)
check_pie_supported()

if(TESSAVANT_STATIC_LINK AND TESSAVANT_SANITIZE)
  # The sanitizer run times intercept the shared C++ run time.
  message(STATUS "Tessavant: sanitizer build, so the programs are linked dynamically")
endif()

# Links OpenSSL and the C++ run time of TARGET statically, if this build does.
# Libraries reach OpenSSL through the OpenSSL:: targets; the targets that opt
# in here get the static archives in their place (see _tessavant_static_openssl).
function(tessavant_link_statically target)
  if(NOT TESSAVANT_STATIC_LINK OR TESSAVANT_SANITIZE)
    return()
  endif()
  set_property(TARGET ${target} PROPERTY TESSAVANT_STATIC_OPENSSL ON)
  target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc)
endfunction()

# Every target that links the shared OpenSSL:: libraries gets, instead, a
# choice made per consumer: the static archives for an executable that opted
# in through tessavant_link_statically, the shared libraries for all others
# (the tests and the other tools keep the plain build).
function(_tessavant_static_openssl)
  if(NOT TESSAVANT_STATIC_LINK OR TESSAVANT_SANITIZE OR NOT TARGET OpenSSL::SSL)
    return()
  endif()
  get_target_property(_ssl OpenSSL::SSL LOCATION)
  get_target_property(_crypto OpenSSL::Crypto LOCATION)
  get_filename_component(_dir "${_ssl}" DIRECTORY)
  find_file(TESSAVANT_LIBSSL_A libssl.a HINTS "${_dir}" NO_DEFAULT_PATH)
  get_filename_component(_dir "${_crypto}" DIRECTORY)
  find_file(TESSAVANT_LIBCRYPTO_A libcrypto.a HINTS "${_dir}" NO_DEFAULT_PATH)
  if(NOT TESSAVANT_LIBSSL_A OR NOT TESSAVANT_LIBCRYPTO_A)
    message(FATAL_ERROR "Tessavant: libssl.a and libcrypto.a were not found beside ${_ssl}; "
                        "install libssl-dev or configure with -DTESSAVANT_STATIC_LINK=OFF")
  endif()

  set(THREADS_PREFER_PTHREAD_FLAG ON)
  find_package(Threads REQUIRED)
  add_library(Tessavant::StaticCrypto STATIC IMPORTED GLOBAL)
  set_target_properties(Tessavant::StaticCrypto PROPERTIES
    IMPORTED_LOCATION "${TESSAVANT_LIBCRYPTO_A}"
    INTERFACE_INCLUDE_DIRECTORIES "${OPENSSL_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES "Threads::Threads;${CMAKE_DL_LIBS}")
  add_library(Tessavant::StaticSSL STATIC IMPORTED GLOBAL)
  set_target_properties(Tessavant::StaticSSL PROPERTIES
    IMPORTED_LOCATION "${TESSAVANT_LIBSSL_A}"
    INTERFACE_INCLUDE_DIRECTORIES "${OPENSSL_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES Tessavant::StaticCrypto)

  set(_chosen "$<BOOL:$<TARGET_PROPERTY:TESSAVANT_STATIC_OPENSSL>>")
  set(_targets)
  set(_dirs "${CMAKE_SOURCE_DIR}")
  while(_dirs)
    list(POP_FRONT _dirs _d)
    get_property(_sub DIRECTORY "${_d}" PROPERTY SUBDIRECTORIES)
    get_property(_own DIRECTORY "${_d}" PROPERTY BUILDSYSTEM_TARGETS)
    list(APPEND _dirs ${_sub})
    list(APPEND _targets ${_own})
  endwhile()
  foreach(_t IN LISTS _targets)
    foreach(_property LINK_LIBRARIES INTERFACE_LINK_LIBRARIES)
      get_target_property(_links ${_t} ${_property})
      if(_links)
        list(TRANSFORM _links REPLACE "OpenSSL::(SSL|Crypto)"
             "$<IF:${_chosen},Tessavant::Static\\1,OpenSSL::\\1>")
        set_property(TARGET ${_t} PROPERTY ${_property} "${_links}")
      endif()
    endforeach()
  endforeach()

  # The programs that run once per request.
  foreach(_t tessavant tessavant-url)
    if(TARGET ${_t})
      tessavant_link_statically(${_t})
    endif()
  endforeach()
endfunction()

# The targets exist only once the whole project has been read.
cmake_language(DEFER DIRECTORY ${CMAKE_SOURCE_DIR} CALL _tessavant_static_openssl)
