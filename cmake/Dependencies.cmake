# Finds every library and says, in one line, how to get a missing one.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

# velorin_require(<target> <pkg-config module> <Debian package>)
# makes imported target dep::<target>, or stops with the command that installs it.
function(velorin_require name module package)
  pkg_check_modules(${name} QUIET IMPORTED_TARGET "${module}")
  if(NOT ${name}_FOUND)
    message(FATAL_ERROR "${module} is missing: run 'make deps', or apt-get install ${package}")
  endif()
  # glibc sets no store by _REENTRANT any more, and a target that defines it cannot share the
  # precompiled header.
  get_target_property(options PkgConfig::${name} INTERFACE_COMPILE_OPTIONS)
  if(options)
    list(REMOVE_ITEM options "-D_REENTRANT")
    set_target_properties(PkgConfig::${name} PROPERTIES INTERFACE_COMPILE_OPTIONS "${options}")
  endif()
  add_library(dep::${name} ALIAS PkgConfig::${name})
endfunction()

velorin_require(flac flac libflac-dev)
velorin_require(soxr soxr libsoxr-dev)
velorin_require(alsa alsa libasound2-dev)
velorin_require(pipewire libpipewire-0.3 libpipewire-0.3-dev)
velorin_require(plist libplist-2.0 libplist-dev)
velorin_require(fmt fmt libfmt-dev)
velorin_require(systemd libsystemd libsystemd-dev)
velorin_require(sdbus sdbus-c++ libsdbus-c++-dev)
velorin_require(sqlite sqlite3 libsqlite3-dev)

macro(velorin_require_config package hint)
  find_package(${package} QUIET ${ARGN})
  if(NOT ${package}_FOUND)
    message(FATAL_ERROR "${package} is missing: run 'make deps', or apt-get install ${hint}")
  endif()
endmacro()
velorin_require_config(nlohmann_json nlohmann-json3-dev)
velorin_require_config(CLI11 libcli11-dev)
velorin_require_config(Boost libboost1.81-dev 1.81)
if(VELORIN_TESTS)
  velorin_require_config(GTest libgtest-dev)
endif()
