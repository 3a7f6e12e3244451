# Logging beside spdlog (libspdlog-dev, from install_peers.sh) writing to a file sink, and variable
# substitution beside envsubst (gettext-base) on the same text. Left out without spdlog.
find_package(spdlog CONFIG QUIET)
if(spdlog_FOUND)
  kbase_add_bench(services_bench SOURCES services_bench.cpp LIBS kbase1 spdlog::spdlog)
else()
  message(STATUS "services_bench left out: spdlog not found (run bench/install_peers.sh)")
endif()
