# SPDX-License-Identifier: MIT
# The additions for daemons, a library of their own on top of nasutil: shared and static from the
# same objects.

set(NASUTIL_SERVICE_MODULES
    Command
    ControlSocket
    FileLock
    CrashEntry
    HmacAuthenticator
    InstanceLock
    LogFile
    LogReader
    Loop
    LoopStatistics
    Settings
    Watchdog
    bytes
    categories
    internal/OldLogs
    internal/SignalInbox
    json
    key_path
    natural_order
    notify
    publishers
    recovery
    share_path
    utf8)

add_library(nasutil_service_objects OBJECT)
foreach(module IN LISTS NASUTIL_SERVICE_MODULES)
  target_sources(nasutil_service_objects PRIVATE service/${module}.cc)
endforeach()
# Small where the kernel decides the time.
foreach(module IN LISTS NASUTIL_SERVICE_MODULES)
  if(NOT module MATCHES "^(LogFile|LogReader|Loop|json|utf8)$")
    set_source_files_properties(service/${module}.cc PROPERTIES COMPILE_OPTIONS
                                                                "$<$<NOT:$<CONFIG:Debug>>:-Os>")
  endif()
endforeach()
# Files of any size, on 32-bit boards too.
set_source_files_properties(service/LogReader.cc PROPERTIES COMPILE_DEFINITIONS
                                                            _FILE_OFFSET_BITS=64)
set_target_properties(nasutil_service_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_include_directories(nasutil_service_objects PRIVATE "${CMAKE_SOURCE_DIR}"
                                                           "${nasutil_ticpp_include}")
target_link_libraries(nasutil_service_objects PRIVATE nasutil_flags OpenSSL::Crypto)

foreach(suffix "" _static)
  set(target nasutil_service${suffix})
  if(suffix)
    add_library(${target} STATIC $<TARGET_OBJECTS:nasutil_service_objects>)
  else()
    add_library(${target} SHARED $<TARGET_OBJECTS:nasutil_service_objects>)
  endif()
  add_library(nasutil::service${suffix} ALIAS ${target})
  set_target_properties(
    ${target} PROPERTIES OUTPUT_NAME nasutil-service EXPORT_NAME service${suffix}
                         VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_link_libraries(${target} PUBLIC nasutil${suffix} PRIVATE OpenSSL::Crypto)
endforeach()

set(symbols "${CMAKE_SOURCE_DIR}/cmake/nasutil-service.map")
set_target_properties(nasutil_service PROPERTIES LINK_DEPENDS "${symbols}")
target_link_libraries(nasutil_service PRIVATE nasutil_flags)
target_link_options(nasutil_service PRIVATE "-Wl,--version-script=${symbols}"
                    -Wl,-Bsymbolic-functions)
