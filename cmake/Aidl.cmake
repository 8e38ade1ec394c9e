# The AIDL compiler that scripts/setup found or AIDL names, and the rule that turns definitions into a library.

if(NOT "$ENV{AIDL}" STREQUAL "")
    set(AIDL $ENV{AIDL})
elseif(NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
    set(AIDL $ENV{XDG_CACHE_HOME}/vela/bin/aidl)
else()
    set(AIDL $ENV{HOME}/.cache/vela/bin/aidl)
endif()
if(NOT EXISTS ${AIDL})
    message(FATAL_ERROR "No aidl compiler of version 12 or newer at ${AIDL}: run scripts/setup, "
        "or name one with AIDL=/path/to/aidl")
endif()

# All that is generated: what a checker needs that reads code without building it.
add_custom_target(interface_headers)

# aidl_library(NAME ROOT <dir> [TRACE] [UNSTABLE] [IMPORTS <dir>...] [VERSION <n> HASH <hash>] [LIBS <lib>...]
#     FILES <file>...)
#
# TRACE: the code marks each call for traces (android/trace.h), as a platform build's does. UNSTABLE: no manifest
# declares the interfaces. NAME is a static library of the NDK back end's code, its headers system headers to whoever links it.
function(aidl_library name)
    cmake_parse_arguments(ARG "TRACE;UNSTABLE" "ROOT;VERSION;HASH" "IMPORTS;LIBS;FILES" ${ARGN})
    set(out ${CMAKE_CURRENT_BINARY_DIR}/${name})
    set(sources)
    set(headers)
    set(inputs)
    foreach(file ${ARG_FILES})
        cmake_path(GET file STEM stem)
        cmake_path(GET file PARENT_PATH package)
        list(APPEND inputs ${ARG_ROOT}/${file})
        list(APPEND sources ${out}/${package}/${stem}.cpp)
        list(APPEND headers ${out}/include/aidl/${package}/${stem}.h)
    endforeach()
    set(flags --lang=ndk --structured --omit_invocation --min_sdk_version 34 -I ${ARG_ROOT})
    if(NOT ARG_UNSTABLE)
        list(APPEND flags --stability vintf)
    endif()
    foreach(import ${ARG_IMPORTS})
        list(APPEND flags -I ${import})
    endforeach()
    if(ARG_TRACE)
        list(APPEND flags --trace)
    endif()
    if(ARG_VERSION)
        list(APPEND flags --version ${ARG_VERSION} --hash ${ARG_HASH})
    endif()
    add_custom_command(
        OUTPUT ${sources} ${headers}
        COMMAND ${AIDL} ${flags} -o ${out} -h ${out}/include ${inputs}
        DEPENDS ${inputs} ${AIDL}
        COMMENT "Compiling the interfaces of ${name}"
        VERBATIM)
    add_custom_target(${name}_headers DEPENDS ${headers})
    add_dependencies(interface_headers ${name}_headers)
    add_library(${name} STATIC ${sources})
    add_dependencies(${name} ${name}_headers)
    # Parcels are a call of the run time for each field: not by way of a stub each.
    target_compile_options(${name} PRIVATE -w -fno-plt)
    set_target_properties(${name} PROPERTIES UNITY_BUILD OFF)
    # As a device's build has it: the objects say that their interface is frozen.
    target_compile_definitions(${name} PUBLIC BINDER_STABILITY_SUPPORT)
    target_include_directories(${name} SYSTEM PUBLIC ${out}/include)
    target_link_libraries(${name} PUBLIC binder_ndk ${ARG_LIBS})
endfunction()
