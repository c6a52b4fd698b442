# dpkg installs the packages into an empty root, upgrades, removes and purges them. The host runs from that root; an
# administrator's change to its configuration survives the upgrade and the removal, and nothing survives the purge.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

find_program(dpkg dpkg)
find_program(fakeroot fakeroot)
execute_process(COMMAND id -u OUTPUT_VARIABLE user OUTPUT_STRIP_TRAILING_WHITESPACE)
set(as_root)
if(NOT dpkg)
  message(STATUS "skipped, because dpkg is not installed")
  return()
elseif(NOT user STREQUAL "0")
  if(NOT fakeroot)
    message(STATUS "skipped, because this needs root or fakeroot")
    return()
  endif()
  set(as_root ${fakeroot})
endif()
file(GLOB packages ${FENLUX_WORK_DIR}/archive/*.deb)
if(NOT packages)
  message(STATUS "skipped, because no packages were made")
  return()
endif()

set(folder ${FENLUX_WORK_DIR}/dpkg)
set(root ${folder}/root)
empty_folder(${folder})
file(MAKE_DIRECTORY ${root}/var/lib/dpkg/info ${root}/var/lib/dpkg/updates ${root}/var/lib/dpkg/triggers
                    ${root}/var/log)
file(WRITE ${root}/var/lib/dpkg/status "")

# dpkg needs programs of the system that an ordinary user's path may lack. The root has no packages to depend on.
set(ENV{PATH} "$ENV{PATH}:/usr/sbin:/sbin")
function(dpkg)
  run(output ${as_root} ${dpkg} --root=${root} --log=${root}/var/log/dpkg.log --force-depends --force-script-chrootless
      --force-confold ${ARGN})
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_configuration text)
  file(READ ${root}/etc/fenlux/host.toml configuration)
  string(FIND "${configuration}" "${text}" position)
  if(position EQUAL -1)
    message(SEND_ERROR "the configuration lacks \"${text}\":\n${configuration}")
  endif()
endfunction()

# ---- install, and run what was installed

dpkg(--install ${packages})
set(module ${root}/usr/${FENLUX_LIBRARY})
if(NOT EXISTS ${module})
  message(FATAL_ERROR "${module} was not installed")
endif()
check_library(${root}/usr)
if(FENLUX_BUILD_REFHOST)
  run(directory mktemp -d)
  string(STRIP "${directory}" directory)
  execute_process(
    COMMAND ${root}/usr/bin/fenlux-host run --config ${root}/etc/fenlux/host.toml --duration 1
            --socket ${directory}/host.sock
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  file(REMOVE_RECURSE ${directory})
  if(NOT result STREQUAL "0" OR NOT output MATCHES "Driver Interact Ready\\.")
    message(SEND_ERROR "the installed host exited with ${result}:\n${output}")
  endif()
endif()

# ---- the reference host finds the module without the development package

dpkg(--remove libfenlux-dev fenlux-doc)
if(NOT EXISTS ${module} OR EXISTS ${root}/usr/include/fenlux)
  message(SEND_ERROR "removing the development package removed the module, or left the headers")
endif()
if(FENLUX_BUILD_REFHOST)
  play_example(${root}/usr)
endif()

# ---- upgrade to the same contents with a higher version

if(FENLUX_BUILD_REFHOST)
  file(APPEND ${root}/etc/fenlux/host.toml "# changed by the administrator\n")
endif()
set(upgrades)
foreach(package ${packages})
  cmake_path(GET package STEM LAST_ONLY name)
  run(output ${as_root} dpkg-deb -R ${package} ${folder}/${name})
  file(READ ${folder}/${name}/DEBIAN/control control)
  string(REPLACE "${FENLUX_DEB_VERSION}" "${FENLUX_DEB_VERSION}+upgrade" control "${control}")
  file(WRITE ${folder}/${name}/DEBIAN/control "${control}")
  run(output ${as_root} dpkg-deb --root-owner-group -b ${folder}/${name} ${folder}/${name}+upgrade.deb)
  list(APPEND upgrades ${folder}/${name}+upgrade.deb)
endforeach()
dpkg(--install ${upgrades})
run(output ${dpkg} --root=${root} --audit)
if(NOT output STREQUAL "")
  message(SEND_ERROR "dpkg finds after the upgrade:\n${output}")
endif()
if(FENLUX_BUILD_REFHOST)
  expect_configuration("# changed by the administrator")
  expect_configuration("[emulator]")
endif()

# ---- remove and purge

set(names libfenlux${FENLUX_INTERFACE_VERSION} libfenlux-dev fenlux-doc)
if(FENLUX_BUILD_REFHOST)
  list(APPEND names fenlux-host)
endif()
dpkg(--remove ${names})
if(FENLUX_BUILD_REFHOST)
  expect_configuration("# changed by the administrator")
endif()
dpkg(--purge ${names})
file(GLOB_RECURSE left RELATIVE ${root} ${root}/etc/* ${root}/usr/*)
if(left)
  message(SEND_ERROR "the purge left ${left}")
endif()
