# libvaipc: event loop, IPC and helpers in one archive, for the other programs of the camera.
# Installed with its headers, a CMake package (find_package(vaipc), then link vaipc::vaipc) and a
# description for pkg-config, vaipc.pc. For C++20 only.
# Headers are included as here ("ipc/msg/msgcmd.h"), or as <vaipc/ipc/msg/msgcmd.h>.

include(CMakePackageConfigHelpers)

add_library(vaipc STATIC
    $<TARGET_OBJECTS:va_client> $<TARGET_OBJECTS:va_event> $<TARGET_OBJECTS:va_msg>
    $<TARGET_OBJECTS:va_network> $<TARGET_OBJECTS:va_util>)
set_target_properties(vaipc PROPERTIES LINKER_LANGUAGE CXX)
target_compile_features(vaipc PUBLIC cxx_std_20)
target_link_libraries(vaipc PUBLIC Threads::Threads)
target_sources(vaipc PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES
    event/clock.h event/event.h event/loop.h event/soft_queue.h
    client/capture.h client/entries.h client/events.h client/frame_reader.h client/record.h
    client/shapes.h client/status.h client/stream_client.h client/streams.h client/verdict.h
    ipc/msg/msg.h ipc/msg/msgcmd.h
    ipc/network/sck_buf.h ipc/network/sck_svr.h ipc/network/socket.h
    ipc/network/spipe.h
    records/records.h
    util/guarded.h util/sequence_pool.h util/util.h)
target_sources(vaipc PUBLIC FILE_SET generated TYPE HEADERS
    BASE_DIRS ${PROJECT_BINARY_DIR}/generated
    FILES ${PROJECT_BINARY_DIR}/generated/client/run_dir.h)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vaipc)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vaipcConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(TARGETS vaipc EXPORT vaipcTargets COMPONENT vaipc
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vaipc COMPONENT vaipc
    FILE_SET generated DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vaipc COMPONENT vaipc)
install(EXPORT vaipcTargets NAMESPACE vaipc:: DESTINATION ${package_dir} COMPONENT vaipc)
install(FILES cmake/vaipcConfig.cmake ${PROJECT_BINARY_DIR}/vaipcConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT vaipc)

# The prefix as seen from the .pc file, so that the installed tree can be moved.
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(pc_to_prefix /prefix)
cmake_path(RELATIVE_PATH pc_to_prefix BASE_DIRECTORY /prefix/${pc_dir})
configure_file(cmake/vaipc.pc.in ${PROJECT_BINARY_DIR}/vaipc.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vaipc.pc DESTINATION ${pc_dir} COMPONENT vaipc)
