# How the program binds its libraries.
#
# A CGI program pays its whole start-up on every request, and in a dynamically
# linked build much of that start-up is the loader mapping libstdc++ and
# binding its symbols. So by default the C++ run time is linked into the
# programs that run once per request; glibc stays shared (name resolution and
# the locale data need it) and the programs stay position-independent
# executables. OpenSSL is not linked at all: the program loads the system's
# libssl when it opens an https reference (net/SslLibrary.h). bench/run
# measures the choices against each other.
#
# TESSAVANT_STATIC_LINK=OFF links the C++ run time dynamically too, for
# distributions whose policy requires it.
option(TESSAVANT_STATIC_LINK
       "Link libstdc++ and libgcc statically into the programs (glibc stays shared)" ON)

# PIE from the POSITION_INDEPENDENT_CODE property, not from the compiler's
# default, so that the choice is explicit here.
include(CheckPIESupported)
check_pie_supported()

if(TESSAVANT_STATIC_LINK AND TESSAVANT_SANITIZE)
  # The sanitizer run times intercept the shared C++ run time.
  message(STATUS "Tessavant: sanitizer build, so the programs are linked dynamically")
endif()

# Links the C++ run time of TARGET statically, if this build does. Called
# where the programs are added to the build.
function(tessavant_link_statically target)
  if(NOT TESSAVANT_STATIC_LINK OR TESSAVANT_SANITIZE)
    return()
  endif()
  target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc)
endfunction()
