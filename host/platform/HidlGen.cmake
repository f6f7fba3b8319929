# Runs Debian's hidl-gen over the interface files under host/platform/interfaces, as a device build
# does over hardware/interfaces: C++ headers for every package, and the safe unions' member
# functions from types.cpp (without the binder marshalling the host has no use for). What is
# adapted, and why, is said in hidl/adapt_generated.py.
find_program(HIDL_GEN hidl-gen REQUIRED)
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(HIDL_INTERFACE_ROOT ${CMAKE_CURRENT_LIST_DIR}/interfaces)
set(HIDL_GEN_DIR ${CMAKE_BINARY_DIR}/hidl-gen)
set(HIDL_GEN_INCLUDE_DIR ${HIDL_GEN_DIR}/include)
file(GLOB_RECURSE HIDL_ALL_INTERFACE_FILES CONFIGURE_DEPENDS ${HIDL_INTERFACE_ROOT}/*.hal)

# hidl_gen_package(<package@version> <path under the root> <out-var for the sources>
#                  [NO_TYPES] HEADERS <header names>)
# NO_TYPES: the package has no types.hal, so there is no types.cpp to compile.
function(hidl_gen_package fqname path sources_var)
  cmake_parse_arguments(ARG "NO_TYPES" "" "HEADERS" ${ARGN})
  set(roots -R -r android.hardware:${HIDL_INTERFACE_ROOT}/hardware
            -r android.hidl:${HIDL_INTERFACE_ROOT}/hidl
            -r vendor.mox:${HIDL_INTERFACE_ROOT}/vendor/mox)
  # Where the generator writes a package: its name and version as a path.
  string(REPLACE "@" ";" name_version ${fqname})
  list(GET name_version 0 name)
  list(GET name_version 1 version)
  string(REPLACE "." "/" out ${name})
  set(out ${out}/${version})
  set(headers)
  foreach(header IN LISTS ARG_HEADERS)
    list(APPEND headers ${HIDL_GEN_INCLUDE_DIR}/${out}/${header})
  endforeach()
  set(raw_types ${HIDL_GEN_DIR}/sources/${out}/types.cpp)
  set(types ${HIDL_GEN_DIR}/host/${out}/types.cpp)
  set(adapt ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/hidl/adapt_generated.py)
  set(commands COMMAND ${HIDL_GEN} -o ${HIDL_GEN_INCLUDE_DIR} -L c++-headers ${roots} ${fqname})
  if(ARG_NO_TYPES)
    set(types)
    set(raw_types)
  else()
    list(APPEND commands
      COMMAND ${HIDL_GEN} -o ${HIDL_GEN_DIR}/sources -L c++-sources ${roots} ${fqname}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${HIDL_GEN_DIR}/host/${out}
      COMMAND Python3::Interpreter ${adapt} header ${HIDL_GEN_INCLUDE_DIR}/${out}/types.h
      COMMAND Python3::Interpreter ${adapt} sources ${raw_types} ${types})
  endif()
  add_custom_command(
    OUTPUT ${headers} ${types}
    BYPRODUCTS ${raw_types}
    ${commands}
    DEPENDS ${HIDL_ALL_INTERFACE_FILES} ${adapt}
    COMMENT "hidl-gen ${fqname}"
    VERBATIM)
  if(types AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The safe unions clear their storage with memset before placing a member in it, as the
    # generator writes them; GCC's class-memaccess check objects to that in every union.
    set_source_files_properties(${types} PROPERTIES COMPILE_OPTIONS -Wno-class-memaccess)
  endif()
  set(${sources_var} ${types} ${headers} PARENT_SCOPE)
endfunction()

# ---- The host's binder: Cap'n Proto RPC between processes ----
find_package(CapnProto REQUIRED)
set(HIDL_TRANSPORT_DIR ${CMAKE_CURRENT_LIST_DIR}/transport)
set(HIDL_WIRE_DIR ${HIDL_GEN_DIR}/wire)

# hidl_wire_capnp(<schema file> <out-var for sources>): C++ from a Cap'n Proto schema.
function(hidl_wire_capnp schema sources_var)
  get_filename_component(name ${schema} NAME)
  get_filename_component(dir ${schema} DIRECTORY)
  add_custom_command(
    OUTPUT ${HIDL_WIRE_DIR}/${name}.c++ ${HIDL_WIRE_DIR}/${name}.h
    COMMAND ${CMAKE_COMMAND} -E make_directory ${HIDL_WIRE_DIR}
    COMMAND ${CAPNP_EXECUTABLE} compile -oc++:${HIDL_WIRE_DIR} --src-prefix=${dir}
            -I${HIDL_TRANSPORT_DIR} -I/usr/include ${schema}
    DEPENDS ${schema} ${HIDL_TRANSPORT_DIR}/base.capnp
    COMMENT "capnp ${name}"
    VERBATIM)
  set(${sources_var} ${HIDL_WIRE_DIR}/${name}.c++ PARENT_SCOPE)
endfunction()

# hidl_wire_package(<package@version> <path under the root> <stem> <out-var for sources>):
# the schema, conversions, proxies and stubs of a package's interfaces.
function(hidl_wire_package fqname path stem sources_var)
  set(generator ${HIDL_TRANSPORT_DIR}/hal_to_capnp.py)
  set(out ${HIDL_WIRE_DIR}/${stem}.capnp ${HIDL_WIRE_DIR}/${stem}Wire.h ${HIDL_WIRE_DIR}/${stem}Wire.cpp)
  add_custom_command(
    OUTPUT ${out}
    COMMAND Python3::Interpreter ${generator} ${fqname} ${HIDL_INTERFACE_ROOT}/${path}
            --import-package android.hidl.safe_union@1.0 ${HIDL_INTERFACE_ROOT}/hidl/safe_union/1.0
            -o ${HIDL_WIRE_DIR} --stem ${stem}
    DEPENDS ${generator} ${HIDL_ALL_INTERFACE_FILES}
    COMMENT "hal_to_capnp ${fqname}"
    VERBATIM)
  hidl_wire_capnp(${HIDL_WIRE_DIR}/${stem}.capnp capnp_sources)
  set(${sources_var} ${HIDL_WIRE_DIR}/${stem}Wire.cpp ${capnp_sources} PARENT_SCOPE)
endfunction()
