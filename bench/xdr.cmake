# XDR streams beside libtirpc's xdrstdio (xdr_bench_peer.cpp is the only file that includes it).
find_package(PkgConfig REQUIRED)
pkg_check_modules(TIRPC REQUIRED IMPORTED_TARGET libtirpc)

kbase_add_bench(xdr_bench
  SOURCES xdr_bench.cpp xdr_bench_peer.cpp
  LIBS kbase1 PkgConfig::TIRPC)
