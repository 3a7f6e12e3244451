# Object store propagation beside std::function and boost.signals2 (header-only, libboost-dev).
find_package(Boost CONFIG COMPONENTS headers)
find_package(Threads REQUIRED)
if(Boost_FOUND)
  kbase_add_bench(object_store_bench
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/object_store_bench.cpp
    LIBS kbase1 Boost::headers Threads::Threads)
else()
  message(STATUS "object_store_bench left out: boost.signals2 not found (run bench/install_peers.sh)")
endif()
