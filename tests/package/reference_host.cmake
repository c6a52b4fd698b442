# The reference host, installed with the module but without what a host's author needs, finds the module there and plays
# its scripted example.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

set(folder ${FENLUX_WORK_DIR}/reference-host)
empty_folder(${folder})
install_components(${folder} ${FENLUX_RUNTIME_COMPONENT} host)
play_example(${folder})
