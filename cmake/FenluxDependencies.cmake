# The libraries of the module. Those of the reference host and the tests are found where they are used.
find_package(Threads REQUIRED)
find_package(Boost REQUIRED COMPONENTS system filesystem)
find_package(Poco REQUIRED COMPONENTS Foundation Net)
