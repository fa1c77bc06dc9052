# The unit suites built for Windows and run under Wine: the same sources against the Windows
# backend, with another compiler, another C runtime and a 32-bit long. GoogleTest comes from
# Debian's source package, compiled here with the MinGW toolchain.
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)

# Folders whose tests hold no POSIX dependence take all their tests; the others name theirs.
set(win_format_tests format/*_test.cpp)
set(win_console_tests console/*_test.cpp)
set(win_support_tests support/*_test.cpp)
set(win_echo_tests echo/chunk_check_test.cpp echo/chunk_format_test.cpp echo/chunk_random_test.cpp
    echo/crc32_test.cpp echo/echo_records_test.cpp echo/log_file_writer_test.cpp)
# The platform folder leaves out what holds only on POSIX (descriptors, termios, fork, the
# errno map). Its serial cases run on a socat null-modem line (scripts/wine-run.sh) whose far
# end the Windows helpers in common/windows/ play; what Wine cannot do is skipped under Wine
# with its reason (common/wine_differences.h).
set(win_platform_tests platform/sync_test.cpp platform/thread_test.cpp platform/console_decoder_test.cpp
    platform/console_pipe_test.cpp platform/console_pump_test.cpp platform/regular_file_test.cpp
    platform/serial_completion_routine_test.cpp platform/serial_open_test.cpp
    platform/serial_requests_test.cpp platform/serial_state_test.cpp platform/serial_timeouts_test.cpp
    common/windows/*.cpp)

# The suites of the serial cases: they need the null-modem line below.
set(win_serial_suites
    "CompletionRoutineTest.*:GoneDevice.*:*/GoneDevice.*:OpenTest.*:ReadTimeoutCase.*:*/ReadTimeoutCase.*:ReadTimeoutTest.*:RequestTest.*:StateTest.*:WriteTimeoutTest.*")

foreach(folder format console support echo platform)
  set(sources "")
  foreach(pattern IN LISTS win_${folder}_tests)
    file(GLOB matched CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${pattern})
    list(APPEND sources ${matched})
  endforeach()
  add_executable(${folder}_tests_win ${sources})
  target_include_directories(${folder}_tests_win PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${folder}_tests_win PRIVATE portwren_core gtest gtest_main portwren_warnings)
  # GCC 12 at -O3 takes some std::string copies for overlapping memcpy calls.
  target_compile_options(${folder}_tests_win PRIVATE -Wno-restrict)
  # Runs alone under Wine: no MinGW runtime DLLs beside it.
  target_link_options(${folder}_tests_win PRIVATE -static -static-libgcc -static-libstdc++)
  add_test(NAME wine.${folder} COMMAND bash ${PROJECT_SOURCE_DIR}/scripts/wine-run.sh
                                       $<TARGET_FILE:${folder}_tests_win> --gtest_filter=-${win_serial_suites})
  set_tests_properties(wine.${folder} PROPERTIES LABELS wine TIMEOUT 300 ENVIRONMENT TZ=UTC)
endforeach()

# The serial cases on a socat null-modem line, in a prefix and with a wineserver of their own
# (scripts/wine-run.sh), one run at a time.
add_test(NAME wine-serial.platform COMMAND bash ${PROJECT_SOURCE_DIR}/scripts/wine-run.sh
                                           $<TARGET_FILE:platform_tests_win> --gtest_filter=${win_serial_suites})
set_tests_properties(
  wine-serial.platform
  PROPERTIES LABELS "wine;wine-serial" TIMEOUT 300 RESOURCE_LOCK wine-serial-line
             ENVIRONMENT "TZ=UTC;PORTWREN_WINE_SERIAL=1;PORTWREN_WINEPREFIX=${CMAKE_CURRENT_BINARY_DIR}/wine-prefix-serial")
