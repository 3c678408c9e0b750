# The test program on the real system: its calls go through tests/support/windows, which counts them and makes them fail.
target_sources(rastrel_tests PRIVATE ${PROJECT_SOURCE_DIR}/platform/windows/dialogs.rc)
target_compile_options(rastrel_tests PRIVATE "SHELL:-include ${CMAKE_CURRENT_SOURCE_DIR}/support/windows/host.h")
target_link_libraries(rastrel_tests PRIVATE pthread)

# Left out, since they ask the host layer for what this system has not or promises nothing about:
set(otherSystem
  # a screen of another depth or with a palette,
  CombineDIB.TakesOverTheColoursOfAPaletteScreen
  DeviceBitmaps.TakeThePaletteOfTheScreen
  GetCurrentPalette.*
  GetSystemPalette.*
  # bitmaps of several planes,
  ConvertToMonochromeBitmap.TakesPlanesTogether
  ConvertBitmapToDIB.MakesTheColourTable
  # bitmaps of several planes again, and padding of rows that stays as it was; the system clears it,
  BitmapMoves.TakePlanesAndPaddingAlong
  # bitmaps of any depth in any device context; the system takes those of 1 bit and of the screen's depth,
  InvertBitmap.TakesOtherDepthsThanTheScreens)
list(JOIN otherSystem ":" otherSystem)

# One run: Wine takes longer to start than most tests take.
add_test(NAME rastrel_tests COMMAND rastrel_tests --gtest_brief=1 --gtest_filter=-${otherSystem})
set_tests_properties(rastrel_tests PROPERTIES TIMEOUT 600 SKIP_RETURN_CODE 77)

# The library itself: its progress windows, and the loader's way with it.
add_executable(rastrel_progress_window_test windows/progress_window_test.cpp)
target_link_libraries(rastrel_progress_window_test PRIVATE rastrel rastrel_options)
add_executable(rastrel_loader_test windows/loader_test.cpp)
target_include_directories(rastrel_loader_test PRIVATE ${RASTREL_INCLUDE_DIR})
target_link_libraries(rastrel_loader_test PRIVATE rastrel_options)
add_dependencies(rastrel_loader_test rastrel)
add_test(NAME progress_window COMMAND rastrel_progress_window_test)
add_test(NAME loader COMMAND rastrel_loader_test)
set_tests_properties(progress_window loader PROPERTIES
  TIMEOUT 120 SKIP_RETURN_CODE 77 ENVIRONMENT WINEPATH=$<TARGET_FILE_DIR:rastrel>)

if(RASTREL_BUILD_TOOL)
  add_test(NAME command COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/windows/command_test.sh
    ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:rastrel_command>)
  set_tests_properties(command PROPERTIES TIMEOUT 600 SKIP_RETURN_CODE 77)
endif()
