# Flags of all targets of ours, and the one way a folder declares its library.

if(VA_SANITIZE)
    add_compile_options(-fsanitize=${VA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${VA_SANITIZE})
endif()

# The camera's programs leave out what they do not call.
add_compile_options($<$<CONFIG:MinSizeRel>:-ffunction-sections> $<$<CONFIG:MinSizeRel>:-fdata-sections>)
add_link_options($<$<CONFIG:MinSizeRel>:LINKER:--gc-sections>)

add_library(va_warnings INTERFACE)
target_compile_options(va_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat-nonliteral
    # A new stream, say, is missing in each place that has to know of it.
    -Werror=switch
    # A lock's name is a plain std::mutex, see util/guarded.h.
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
    $<$<CXX_COMPILER_ID:Clang>:-Wno-thread-safety-attributes>
    $<$<BOOL:${VA_WERROR}>:-Werror>)

# va_library(name SOURCES ... LINKS ...): a folder's static library. LINKS is all the folder may use.
function(va_library name)
    cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
    add_library(${name} STATIC ${arg_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_compile_definitions(${name} PRIVATE VA_CHECK_LOCKS)
    target_link_libraries(${name} PUBLIC ${arg_LINKS} Threads::Threads
                                  PRIVATE $<BUILD_INTERFACE:va_warnings>)
endfunction()
