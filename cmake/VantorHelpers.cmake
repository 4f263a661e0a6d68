# Adds one QtTest executable, registered with CTest and run headless.
#   vantor_add_test(NAME name SOURCES a.cpp ... [LIBS extra...] [LABELS l...] [TIMEOUT s])
# Test executables link the library's internal static twin so that they can reach
# private classes that the shared library hides.
function(vantor_add_test)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=thread")
    # Lets the sanitizer see the ordering given by Qt's locks (Qt itself is not instrumented).
    target_sources(${T_NAME} PRIVATE ${PROJECT_SOURCE_DIR}/tools/tsan/TsanQtAnnotations.cpp)
    target_link_libraries(${T_NAME} PRIVATE ${CMAKE_DL_LIBS})
  endif()
  target_link_libraries(${T_NAME} PRIVATE vantorutils_internal Qt5::Test ${T_LIBS})
  target_include_directories(${T_NAME} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests/common)
  add_test(NAME ${T_NAME} COMMAND ${T_NAME})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  set_tests_properties(${T_NAME} PROPERTIES
    TIMEOUT ${T_TIMEOUT}
    LABELS "${T_LABELS}"
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;QT_LOGGING_RULES=*.debug=false")
endfunction()
