# What every target of the project has in common.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_AUTOMOC ON)
set(CMAKE_AUTORCC ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_UNITY_BUILD_BATCH_SIZE 12)

find_program(KX_CCACHE ccache)
if(KX_CCACHE)
    # Precompiled headers are only cached when time stamps inside them do not count.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros
        CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${KX_CCACHE})
endif()

# Flags and definitions of the whole project; hosts do not inherit them.
add_library(kx_build INTERFACE)
target_compile_options(kx_build INTERFACE -Wall -Wextra -Wpedantic $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local> -Wno-missing-field-initializers -Wnon-virtual-dtor -Woverloaded-virtual
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess>
    $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-inconsistent-missing-override> $<$<BOOL:${KX_MARCH}>:-march=${KX_MARCH}>)
target_compile_definitions(kx_build INTERFACE QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_FOREACH
    $<$<BOOL:${KX_CHECKS}>:KX_CHECKS=1>)
if(KX_FUZZ)
    target_compile_options(kx_build INTERFACE -fsanitize=fuzzer-no-link,address -fno-omit-frame-pointer)
    target_link_options(kx_build INTERFACE -fsanitize=address)
    target_compile_definitions(kx_build INTERFACE KX_SANITIZED=1)
elseif(KX_SANITIZE)
    target_compile_options(kx_build INTERFACE -fsanitize=${KX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(kx_build INTERFACE -fsanitize=${KX_SANITIZE})
    target_compile_definitions(kx_build INTERFACE KX_SANITIZED=1)
endif()

# kx_library(Core FOLDERS foundation store LINKS Qt6::Core PRIVATE_LINKS SQLite::SQLite3)
# makes the shared library KestrixKit::Core of the folders' sources; each folder's CMakeLists.txt lists
# its files with kx_sources(). Public headers (all but *_p.h) are installed.
function(kx_library name)
    cmake_parse_arguments(ARG "" "" "FOLDERS;LINKS;PRIVATE_LINKS" ${ARGN})
    set(target KestrixKit${name})
    add_library(${target} SHARED)
    add_library(KestrixKit::${name} ALIAS ${target})
    string(TOUPPER ${name} upper)
    string(TOLOWER ${name} lower)
    # An installed library finds the others beside it, wherever the prefix is.
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${name} OUTPUT_NAME kestrixkit-${lower} VERSION ${PROJECT_VERSION}
        SOVERSION 0 INSTALL_RPATH "$ORIGIN" UNITY_BUILD_UNIQUE_ID KX_UNITY_ID)
    target_compile_definitions(${target} PRIVATE KX_BUILD_${upper})
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_link_libraries(${target} PUBLIC ${ARG_LINKS} PRIVATE ${ARG_PRIVATE_LINKS} $<BUILD_INTERFACE:kx_build>)
    kx_pch(${target})
    set(KX_TARGET ${target})
    foreach(folder IN LISTS ARG_FOLDERS)
        add_subdirectory(${folder})
    endforeach()
    kx_headers(${name} "${ARG_LINKS}" ${ARG_FOLDERS})
    install(TARGETS ${target} EXPORT KestrixKit${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    set_property(GLOBAL APPEND PROPERTY KX_LIBRARIES ${name})
endfunction()

# kx_module(FFmpeg FOLDERS audio/ffmpeg LINKS …): what libraries load when they first need it (KXModule_p.h), since it links
# much. In a folder beside them that each version has for itself.
set(KX_MODULE_FOLDER kestrixkit-${PROJECT_VERSION})
add_custom_target(kx_modules)
function(kx_module name)
    cmake_parse_arguments(ARG "" "" "FOLDERS;LINKS" ${ARGN})
    set(KX_TARGET KestrixKit${name})
    string(TOLOWER ${name} lower)
    add_library(${KX_TARGET} MODULE)
    set_target_properties(${KX_TARGET} PROPERTIES PREFIX "" OUTPUT_NAME kestrixkit-${lower} UNITY_BUILD_UNIQUE_ID KX_UNITY_ID
        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/${KX_MODULE_FOLDER} INSTALL_RPATH "$ORIGIN/..")
    target_link_libraries(${KX_TARGET} PRIVATE ${ARG_LINKS} kx_build)
    kx_pch(${KX_TARGET})
    foreach(folder IN LISTS ARG_FOLDERS)
        add_subdirectory(${folder})
    endforeach()
    install(TARGETS ${KX_TARGET} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/${KX_MODULE_FOLDER})
    add_dependencies(kx_modules ${KX_TARGET})
endfunction()

# The public headers of a library, and <KestrixKit/UI>: all of them and those that it builds on, for hosts that do not count
# compile time.
function(kx_headers name links)
    set(text "#pragma once\n\n")
    list(FILTER links INCLUDE REGEX "^KestrixKit::")
    foreach(link IN LISTS links)
        string(REPLACE "KestrixKit::" "KestrixKit/" link ${link})
        string(APPEND text "#include <${link}>\n")
    endforeach()
    foreach(folder IN LISTS ARGN)
        file(GLOB headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/kestrixkit/${folder}/*.h)
        list(FILTER headers EXCLUDE REGEX "_p\\.h$")
        foreach(header IN LISTS headers)
            string(APPEND text "#include <${header}>\n")
        endforeach()
        list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/)
        install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kestrixkit/${folder})
    endforeach()
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/include/KestrixKit/${name} CONTENT "${text}" @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/include/KestrixKit/${name} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/KestrixKit)
endfunction()

# Names the files of the folder whose CMakeLists.txt calls it.
function(kx_sources)
    target_sources(${KX_TARGET} PRIVATE ${ARGN})
endfunction()

# One precompiled header of Qt's and the standard library's most used headers, made once and reused.
function(kx_pch target)
    if(NOT TARGET kx_pch_${CMAKE_BUILD_TYPE})
        file(WRITE ${CMAKE_BINARY_DIR}/pch/pch.cpp "")
        add_library(kx_pch_${CMAKE_BUILD_TYPE} OBJECT ${CMAKE_BINARY_DIR}/pch/pch.cpp)
        target_link_libraries(kx_pch_${CMAKE_BUILD_TYPE} PRIVATE kx_build Qt6::Core)
        set_target_properties(kx_pch_${CMAKE_BUILD_TYPE} PROPERTIES AUTOMOC OFF UNITY_BUILD OFF)
        target_precompile_headers(kx_pch_${CMAKE_BUILD_TYPE} PRIVATE
            <QByteArray> <QDateTime> <QHash> <QList> <QObject> <QPointer> <QString> <QStringList> <QUrl> <QVariant>
            <algorithm> <atomic> <functional> <memory> <mutex> <optional> <span> <string> <thread> <unordered_map> <vector>)
    endif()
    target_precompile_headers(${target} REUSE_FROM kx_pch_${CMAKE_BUILD_TYPE})
endfunction()

# kx_translations(target name prefix): translations/NAME_*.ts as the Qt resources PREFIX/translations/NAME_*.qm of the
# target; one of a static library needs Q_INIT_RESOURCE(NAME_translations).
function(kx_translations target name prefix)
    file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/translations/${name}_*.ts)
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/translations)
    file(MAKE_DIRECTORY ${folder})
    set(list "<RCC><qresource prefix=\"${prefix}/translations\">")
    foreach(source IN LISTS sources)
        get_filename_component(stem ${source} NAME_WE)
        add_custom_command(OUTPUT ${folder}/${stem}.qm DEPENDS ${source} VERBATIM
            COMMAND Qt6::lrelease -silent -nounfinished ${source} -qm ${folder}/${stem}.qm)
        list(APPEND made ${folder}/${stem}.qm)
        string(APPEND list "<file>${stem}.qm</file>")
    endforeach()
    file(CONFIGURE OUTPUT ${folder}/${name}.qrc CONTENT "${list}</qresource></RCC>\n" @ONLY)
    # Its first format holds no times, which would make each build another one.
    add_custom_command(OUTPUT ${folder}/${name}.cpp DEPENDS ${folder}/${name}.qrc ${made} VERBATIM
        COMMAND Qt6::rcc --format-version 1 --name ${name}_translations ${folder}/${name}.qrc -o ${folder}/${name}.cpp)
    set_source_files_properties(${folder}/${name}.cpp PROPERTIES SKIP_AUTOGEN ON SKIP_UNITY_BUILD_INCLUSION ON SKIP_PRECOMPILE_HEADERS ON)
    target_sources(${target} PRIVATE ${folder}/${name}.cpp)
endfunction()

# kx_program(name SOURCES … LINKS …): an executable of the project (host, tool, bench), with the modules that it may load.
function(kx_program name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE kx_build ${ARG_LINKS})
    add_dependencies(${name} kx_modules)
    set_target_properties(${name} PROPERTIES UNITY_BUILD_UNIQUE_ID KX_UNITY_ID)
    kx_pch(${name})
endfunction()

# kx_install_program(browser [AS kestrixkit-browser] [MANUAL FILE]): into a folder of the project, where programs find those that
# they start; its name for users is a link to it. It finds the libraries, wherever the prefix is.
set(KX_PROGRAMS ${CMAKE_INSTALL_LIBEXECDIR}/kestrixkit)
function(kx_install_program target)
    cmake_parse_arguments(ARG "" "AS;MANUAL" "" ${ARGN})
    file(RELATIVE_PATH libraries /${KX_PROGRAMS} /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
    install(TARGETS ${target} RUNTIME DESTINATION ${KX_PROGRAMS})
    if(ARG_AS)
        file(RELATIVE_PATH program /${CMAKE_INSTALL_BINDIR} /${KX_PROGRAMS}/${target})
        set(link ${PROJECT_BINARY_DIR}/links/${ARG_AS})
        file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/links)
        file(CREATE_LINK ${program} ${link} SYMBOLIC)
        install(FILES ${link} DESTINATION ${CMAKE_INSTALL_BINDIR})
    endif()
    if(ARG_MANUAL)
        install(FILES ${ARG_MANUAL} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    endif()
endfunction()
