# Installation and packaging.
#
# The layout is Debian's: CGI programs in lib/cgi-bin (the directory that the
# stock lighttpd, Apache and nginx/fcgiwrap configurations serve), operator
# tools in bin, manual pages in share/man. `cpack -G DEB` in the build
# directory makes tessavant_6.0_<arch>.deb installing under /usr.

install(TARGETS tessavant RUNTIME DESTINATION lib/cgi-bin)
install(TARGETS tessavant-url RUNTIME DESTINATION bin)
install(PROGRAMS tools/tessavant-keygen DESTINATION bin)

# Debian ships manual pages compressed; -n keeps the name and time out of the
# archive so that the package builds reproducibly.
set(_man_pages man/tessavant.8 man/tessavant-url.1 man/tessavant-keygen.1)
set(_man_gz)
foreach(_page IN LISTS _man_pages)
  get_filename_component(_name ${_page} NAME)
  set(_gz ${PROJECT_BINARY_DIR}/man/${_name}.gz)
  add_custom_command(
    OUTPUT ${_gz}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
    COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/${_page} > ${_gz}
    DEPENDS ${PROJECT_SOURCE_DIR}/${_page}
    COMMENT "Compressing ${_name}")
  list(APPEND _man_gz ${_gz})
  string(REGEX REPLACE ".*\\.([0-9])$" "\\1" _section ${_name})
  install(FILES ${_gz} DESTINATION share/man/man${_section})
endforeach()
add_custom_target(tessavant_man ALL DEPENDS ${_man_gz})

install(FILES README.md DESTINATION share/doc/tessavant)
install(FILES deploy/README.md DESTINATION share/doc/tessavant RENAME README.deploy.md)
# The server configurations, for the program run per request and as a
# FastCGI responder, and the unit that runs the responder under spawn-fcgi.
install(FILES deploy/lighttpd/50-tessavant.conf deploy/lighttpd/50-tessavant-fastcgi.conf
        DESTINATION share/doc/tessavant/examples/lighttpd)
install(FILES deploy/apache/tessavant.conf deploy/apache/tessavant-fastcgi.conf
        DESTINATION share/doc/tessavant/examples/apache)
install(FILES deploy/nginx/tessavant.conf deploy/nginx/tessavant-fastcgi.conf
        DESTINATION share/doc/tessavant/examples/nginx)
install(FILES deploy/spawn-fcgi/tessavant-fastcgi.service DESTINATION share/doc/tessavant/examples/spawn-fcgi)
install(FILES deploy/policy/public.policy DESTINATION share/doc/tessavant/examples/policy)
# FastCGI mode under systemd: the socket, the responder, and an nginx site
# for it. Installed but not enabled: systemctl enable --now tessavant.socket.
install(FILES deploy/systemd/tessavant.socket deploy/systemd/tessavant.service
        DESTINATION lib/systemd/system)
install(FILES deploy/systemd/nginx-site.conf DESTINATION share/doc/tessavant/examples/systemd)
install(FILES deploy/hosts/nginx-two-hosts.conf DESTINATION share/doc/tessavant/examples/hosts)
install(FILES deploy/cache/nginx-cache.conf deploy/cache/varnish.vcl
        DESTINATION share/doc/tessavant/examples/cache)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tessavant)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Tessavant")
set(CPACK_PACKAGE_CONTACT "Tessavant maintainers <maintainers@tessavant.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "CGI image server for the Tessavant client applet")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${CPACK_PACKAGE_CONTACT}")
set(CPACK_DEBIAN_PACKAGE_SECTION web)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://www.tessavant.org/")
# The dependencies are read off the binaries by dpkg-shlibdeps, so they follow
# however the program is linked. libssl3 is loaded only when an https
# reference is opened (dlopen), which dpkg-shlibdeps cannot see; CPack adds
# the computed dependencies to this one.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libssl3")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "lighttpd | apache2 | nginx, fcgiwrap | spawn-fcgi")
# CPack puts the summary first and indents these lines itself; an empty line
# becomes the paragraph mark " .".
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"tessavant is a CGI program started by a web server (lighttpd, Apache
httpd, or nginx through fcgiwrap) once per request. It answers a few
plain-text commands and streams one image per request, read from the
local disk or fetched over http or https, named by a reference that
arrives encrypted in the query string. Images go out with long-lived
caching headers and conditional requests are answered with 304.

The package holds the program in /usr/lib/cgi-bin, the tessavant-url
tool that makes image requests, tessavant-keygen, which writes the
key file for a build with a deployment's own keys, and systemd units
that run the program as a FastCGI responder (installed, not enabled).")

include(CPack)
