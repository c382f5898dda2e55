# The layering rule, checked when the build is configured: a subsystem's sources and
# headers include headers of their own subsystem and of the subsystems their library
# links (directly or through another), nothing above. Every library sees all of src/ on
# its include path, so without this check an upward include would compile.
#
# Also runs as a script, which the tests use to prove that an upward include fails:
#   cmake -DLAYERING_ROOT=<dir> -DLAYERING_ALLOWED="core=core;model=core,model" -P Layering.cmake
# where <dir> holds one folder per subsystem.

# brassline_layering_violations(ROOT SUBSYSTEM ALLOWED... OUT var): the includes of
# ROOT/SUBSYSTEM (recursively, .h and .cpp) that name a subsystem of KNOWN outside
# ALLOWED, as "file:line: #include ..." lines.
function(brassline_layering_violations root subsystem)
  cmake_parse_arguments(ARG "" "OUT" "ALLOWED;KNOWN" ${ARGN})
  file(GLOB_RECURSE files "${root}/${subsystem}/*.h" "${root}/${subsystem}/*.cpp")
  set(found "")
  list(JOIN ARG_ALLOWED ", " allowedText)
  foreach(file IN LISTS files)
    file(STRINGS "${file}" lines REGEX "^[ \t]*#[ \t]*include[ \t]*[\"<][A-Za-z_]+/")
    foreach(line IN LISTS lines)
      string(REGEX MATCH "include[ \t]*[\"<]([A-Za-z_]+)/" ignored "${line}")
      set(target "${CMAKE_MATCH_1}")
      if(target IN_LIST ARG_KNOWN AND NOT target IN_LIST ARG_ALLOWED)
        file(RELATIVE_PATH shown "${root}" "${file}")
        string(STRIP "${line}" line)
        list(APPEND found "${shown}: ${line} (${subsystem} may include ${allowedText})")
      endif()
    endforeach()
  endforeach()
  set(${ARG_OUT} "${found}" PARENT_SCOPE)
endfunction()

# The subsystems a library may include: its own and those of every brassline_ library it
# links, followed through their links.
function(brassline_reachable_subsystems target out)
  set(pending ${target})
  set(seen "")
  while(pending)
    list(POP_FRONT pending current)
    if(current IN_LIST seen OR NOT TARGET ${current})
      continue()
    endif()
    list(APPEND seen ${current})
    get_target_property(links ${current} LINK_LIBRARIES)
    foreach(link IN LISTS links)
      if(link MATCHES "^brassline_")
        list(APPEND pending ${link})
      endif()
    endforeach()
  endwhile()
  set(subsystems "")
  foreach(library IN LISTS seen)
    string(REGEX REPLACE "^brassline_" "" name "${library}")
    list(APPEND subsystems ${name})
  endforeach()
  set(${out} "${subsystems}" PARENT_SCOPE)
endfunction()

function(brassline_report_layering violations)
  if(violations)
    list(JOIN violations "\n  " text)
    message(FATAL_ERROR "Upward includes break the layering (core <- model <- store <- money <- lifecycle <- ...);\n"
                        "a lower subsystem reaches a higher one only through a hook:\n  ${text}")
  endif()
endfunction()

# Called once every library exists: checks each subsystem under src/ against its links.
# The command line (src/app) links everything and is not checked.
function(brassline_check_layering)
  get_property(libraries GLOBAL PROPERTY BRASSLINE_LIBRARIES)
  set(known ${libraries} app)
  set(violations "")
  foreach(subsystem IN LISTS libraries)
    brassline_reachable_subsystems(brassline_${subsystem} allowed)
    brassline_layering_violations("${CMAKE_SOURCE_DIR}/src" ${subsystem} ALLOWED ${allowed} KNOWN ${known} OUT found)
    list(APPEND violations ${found})
  endforeach()
  brassline_report_layering("${violations}")
endfunction()

if(CMAKE_SCRIPT_MODE_FILE AND LAYERING_ROOT)
  set(known "")
  set(violations "")
  foreach(entry IN LISTS LAYERING_ALLOWED)
    string(REPLACE "=" ";" parts "${entry}")
    list(GET parts 0 subsystem)
    list(APPEND known ${subsystem})
  endforeach()
  foreach(entry IN LISTS LAYERING_ALLOWED)
    string(REPLACE "=" ";" parts "${entry}")
    list(GET parts 0 subsystem)
    list(GET parts 1 allowed)
    string(REPLACE "," ";" allowed "${allowed}")
    brassline_layering_violations("${LAYERING_ROOT}" ${subsystem} ALLOWED ${allowed} KNOWN ${known} OUT found)
    list(APPEND violations ${found})
  endforeach()
  brassline_report_layering("${violations}")
endif()
