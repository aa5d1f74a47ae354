# SPDX-License-Identifier: MIT
# The additions for daemons, a library of their own on top of nasutil, shared and static.

set(NASUTIL_SERVICE_FAST_MODULES
    service/json
    service/LogFile
    service/LogReader
    service/Loop
    service/utf8)
# In these the kernel decides the time.
set(NASUTIL_SERVICE_SMALL_MODULES
    service/Command
    service/ControlSocket
    service/CrashEntry
    service/FileLock
    service/HmacAuthenticator
    service/InstanceLock
    service/LoopStatistics
    service/Settings
    service/Watchdog
    service/bytes
    service/categories
    service/internal/OldLogs
    service/internal/SignalInbox
    service/key_path
    service/natural_order
    service/notify
    service/publishers
    service/recovery
    service/share_path)
nasutil_sources(nasutil_service_sources NASUTIL_SERVICE_FAST_MODULES NASUTIL_SERVICE_SMALL_MODULES)
# Slower when optimised together with the others.
set_source_files_properties(service/json.cc PROPERTIES COMPILE_OPTIONS -fno-lto)
# Files of any size, on 32-bit boards too.
set_source_files_properties(service/LogReader.cc PROPERTIES COMPILE_DEFINITIONS
                                                            _FILE_OFFSET_BITS=64)

foreach(kind IN LISTS nasutil_object_kinds)
  set(objects nasutil_service_${kind})
  add_library(${objects} OBJECT ${nasutil_service_sources})
  set_target_properties(${objects} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${objects} PRIVATE ${nasutil_${kind}_options})
  target_include_directories(${objects} PRIVATE "${CMAKE_SOURCE_DIR}" "${nasutil_ticpp_include}")
  target_link_libraries(${objects} PRIVATE nasutil_flags OpenSSL::Crypto)
endforeach()

add_library(nasutil_service SHARED $<TARGET_OBJECTS:nasutil_service_${nasutil_shared_kind}>)
add_library(nasutil_service_static STATIC $<TARGET_OBJECTS:nasutil_service_objects>)
foreach(suffix "" _static)
  set(target nasutil_service${suffix})
  add_library(nasutil::service${suffix} ALIAS ${target})
  set_target_properties(
    ${target} PROPERTIES OUTPUT_NAME nasutil-service EXPORT_NAME service${suffix}
                         VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_link_libraries(${target} PUBLIC nasutil${suffix} PRIVATE OpenSSL::Crypto)
endforeach()

nasutil_link_shared(nasutil_service "${CMAKE_SOURCE_DIR}/cmake/nasutil-service.map")
