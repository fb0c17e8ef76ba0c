# The headers that most sources of a part include are compiled once for all of them. That is for speed
# alone: each source includes what it uses, and the packages are compiled without these.
if(CMAKE_DISABLE_PRECOMPILE_HEADERS)
    return()
endif()

set(standard_headers
    <algorithm> <array> <atomic> <chrono> <cmath> <condition_variable> <cstddef> <cstdint> <cstdio>
    <cstring> <functional> <iterator> <map> <memory> <mutex> <optional> <set> <string> <string_view>
    <thread> <utility> <vector>)
# In the order in which they need each other.
set(windows_headers <windows.h> <objbase.h> <audioclient.h> <mmdeviceapi.h> <winhttp.h> <gdiplus.h>
    <commctrl.h>)

# kelvarin_precompile(OWNER HEADERS <header>... [USERS <target>...]): the users have to be compiled with
# the flags of the owner.
function(kelvarin_precompile owner)
    cmake_parse_arguments(PARSE_ARGV 1 precompile "" "" "HEADERS;USERS")
    target_precompile_headers(${owner} PRIVATE ${precompile_HEADERS})
    # GCC 12 takes what is precompiled for code of ours, and then warns of copies in std::string that
    # cannot be. The packages are compiled with this warning.
    target_compile_options(${owner} PRIVATE -Wno-array-bounds)
    foreach(user IN LISTS precompile_USERS)
        if(TARGET ${user})
            target_precompile_headers(${user} REUSE_FROM ${owner})
            target_compile_options(${user} PRIVATE -Wno-array-bounds)
        endif()
    endforeach()
endfunction()

kelvarin_precompile(kelvarin_core HEADERS ${windows_headers} ${standard_headers}
    USERS kelvarin_overlay)
# With an optimisation of its own.
set_source_files_properties(${PROJECT_SOURCE_DIR}/src/sample_conversion.cpp
    TARGET_DIRECTORY kelvarin_core PROPERTIES SKIP_PRECOMPILE_HEADERS ON)

if(NOT WIN32)
    kelvarin_precompile(kelvarin_platform
        HEADERS ${windows_headers} ${standard_headers} <QApplication> <QImage> <QPainter> <QWidget>)
    set_source_files_properties(${PROJECT_SOURCE_DIR}/platform/linux/windowing/pixels.cpp
        TARGET_DIRECTORY kelvarin_platform PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
endif()

if(KELVARIN_TESTS)
    if(NOT WIN32)
        find_package(GTest REQUIRED)
    endif()
    # A target of its own: those that test have flags of the libraries that they use besides.
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/test_headers.cpp CONTENT "")
    add_library(kelvarin_test_headers OBJECT ${PROJECT_BINARY_DIR}/test_headers.cpp)
    target_link_libraries(kelvarin_test_headers PRIVATE kelvarin_core GTest::gtest)
    kelvarin_precompile(kelvarin_test_headers
        HEADERS <gtest/gtest.h> ${windows_headers} ${standard_headers}
        USERS kelvarin_overlay_tests kelvarin_tests kelvarin_http_tests kelvarin_sound_tests
              kelvarin_system_tests)
    if(NOT WIN32)
        kelvarin_precompile(service_tests
            HEADERS <gtest/gtest.h> <gmock/gmock.h> <httplib.h> <nlohmann/json.hpp> ${standard_headers})
    endif()
    # Likewise.
    foreach(target kelvarin_tests service_tests)
        if(TARGET ${target})
            target_compile_options(${target} PRIVATE -Wno-stringop-overflow)
        endif()
    endforeach()
endif()
