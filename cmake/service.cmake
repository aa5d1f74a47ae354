# SPDX-License-Identifier: MIT
# The additions for daemons, a library of their own on top of nasutil, shared and static.

set(NASUTIL_SERVICE_FAST_MODULES
    service/internal/TimerQueue
    service/internal/entry_text)
# In these the kernel, the heap or the caller decides the time.
set(NASUTIL_SERVICE_SMALL_MODULES
    service/Command
    service/ControlSocket
    service/CrashEntry
    service/FileLock
    service/HmacAuthenticator
    service/InstanceLock
    service/LogFile
    service/LogReader
    service/Loop
    service/LoopStatistics
    service/Settings
    service/Watchdog
    service/bytes
    service/categories
    service/internal/OldLogs
    service/internal/SignalInbox
    service/internal/concat
    service/json
    service/key_path
    service/natural_order
    service/notify
    service/publishers
    service/recovery
    service/share_path
    service/utf8)

# Headers only, and only here: no client needs them.
find_path(RAPIDJSON_INCLUDE_DIR rapidjson/reader.h)
mark_as_advanced(RAPIDJSON_INCLUDE_DIR)
set(nasutil_service_targets nasutil_service nasutil_service_static)
if(NOT RAPIDJSON_INCLUDE_DIR)
  set(nasutil_service_targets "")
  set(text "the headers of RapidJSON are missing (package rapidjson-dev)")
  if(BUILD_TESTING OR NASUTIL_BUILD_EXAMPLES OR NASUTIL_BUILD_TOOLS)
    message(FATAL_ERROR "${PROJECT_NAME}: ${text}.")
  endif()
  message(WARNING "${PROJECT_NAME}: libnasutil-service is left out, ${text}.")
  return()
endif()

nasutil_sources(nasutil_service_sources NASUTIL_SERVICE_FAST_MODULES NASUTIL_SERVICE_SMALL_MODULES)
# Files of any size, on 32-bit boards too.
set_source_files_properties(service/LogReader.cc PROPERTIES COMPILE_DEFINITIONS
                                                            _FILE_OFFSET_BITS=64)

add_library(nasutil_service_objects OBJECT ${nasutil_service_sources})
set_target_properties(nasutil_service_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_compile_options(nasutil_service_objects PRIVATE ${nasutil_object_options})
target_include_directories(nasutil_service_objects PRIVATE "${CMAKE_SOURCE_DIR}" "${nasutil_ticpp_include}")
target_include_directories(nasutil_service_objects SYSTEM PRIVATE "${RAPIDJSON_INCLUDE_DIR}")
target_link_libraries(nasutil_service_objects PRIVATE nasutil_flags OpenSSL::Crypto)

add_library(nasutil_service SHARED $<TARGET_OBJECTS:nasutil_service_objects>)
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
