# benchmark::static: Google Benchmark. Its BENCHMARK_MAIN() needs nothing more.
include_guard(GLOBAL)
include(ThirdParty)

add_third_party(benchmark benchmark::static
    BUILD benchmark ARCHIVE src/libbenchmark.a INCLUDE include
    OPTIONS -DBENCHMARK_ENABLE_TESTING=OFF -DBENCHMARK_ENABLE_WERROR=OFF -DBENCHMARK_INSTALL_DOCS=OFF -DGIT_VERSION=0.0.0
    -DCMAKE_CXX_FLAGS=-DBENCHMARK_STATIC_DEFINE)
set_target_properties(benchmark::static PROPERTIES
    INTERFACE_COMPILE_DEFINITIONS BENCHMARK_STATIC_DEFINE
    INTERFACE_LINK_LIBRARIES shlwapi)
