# tarveloqt_build: how every target of this project is compiled. Targets link it privately; nothing
# here reaches an installed target.
add_library(tarveloqt_build INTERFACE)
target_compile_features(tarveloqt_build INTERFACE cxx_std_17)
target_compile_options(tarveloqt_build INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<BOOL:${TARVELOQT_WARNINGS_AS_ERRORS}>:-Werror>)
target_compile_definitions(tarveloqt_build INTERFACE
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY)

if(TARVELOQT_SANITIZERS)
    list(JOIN TARVELOQT_SANITIZERS "," sanitizers)
    target_compile_options(tarveloqt_build INTERFACE
        -fsanitize=${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(tarveloqt_build INTERFACE -fsanitize=${sanitizers})
endif()

if(TARVELOQT_COVERAGE)
    target_compile_options(tarveloqt_build INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(tarveloqt_build INTERFACE --coverage)
endif()

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_CXX_EXTENSIONS OFF)

# tarveloqt_add_layer(NAME SOURCES ... [DEPENDS ...]): one folder of the library, as objects: they
# go whole into the library, and into the tests of its rules. Whoever links a layer names the layers
# below it too.
function(tarveloqt_add_layer name)
    cmake_parse_arguments(PARSE_ARGV 1 layer "" "" "SOURCES;DEPENDS")
    add_library(${name} OBJECT ${layer_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
    target_link_libraries(${name} PUBLIC Qt5::Core ${layer_DEPENDS} PRIVATE tarveloqt_build)
endfunction()
