# brassline_generate_model(DECLARATION <file> OUTPUT_DIR <dir> SOURCES <var>)
# Runs tools/modelgen on a model declaration at build time. Sets <var> to the generated
# sources and headers; add <dir> to the include path of the library that compiles them.
# The generated file names are read from the declaration here, so the build knows them
# before the generator runs.
function(brassline_generate_model)
  cmake_parse_arguments(ARG "" "DECLARATION;OUTPUT_DIR;SOURCES" "" ${ARGN})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ARG_DECLARATION})
  file(STRINGS ${ARG_DECLARATION} lines)
  set(model "")
  set(prefix "")
  set(include "")
  set(entities "")
  set(stubs "")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "#.*$" "" line "${line}")
    if(line MATCHES "^[ \t]*model[ \t]+([A-Za-z0-9_]+)")
      set(model ${CMAKE_MATCH_1})
    elseif(line MATCHES "^[ \t]*classPrefix[ \t]+([A-Za-z0-9_]+)")
      set(prefix ${CMAKE_MATCH_1})
    elseif(line MATCHES "^[ \t]*include[ \t]+([^ \t]+)")
      set(include ${CMAKE_MATCH_1})
    elseif(line MATCHES "^[ \t]*entity[ \t]+([A-Za-z0-9_]+)")
      list(APPEND entities ${CMAKE_MATCH_1})
      if(line MATCHES "[ \t]stub([ \t]|$)")
        list(APPEND stubs ${CMAKE_MATCH_1})
      endif()
    endif()
  endforeach()
  set(root ${ARG_OUTPUT_DIR}/${include})
  set(outputs ${root}gen/${model}Model.h ${root}gen/${model}Model.cpp)
  foreach(entity IN LISTS entities)
    list(APPEND outputs ${root}gen/${prefix}${entity}.h ${root}gen/${prefix}${entity}.cpp)
  endforeach()
  foreach(entity IN LISTS stubs)
    list(APPEND outputs ${root}${prefix}${entity}.h)
  endforeach()
  add_custom_command(
    OUTPUT ${outputs}
    COMMAND modelgen ${ARG_DECLARATION} ${ARG_OUTPUT_DIR}
    DEPENDS modelgen ${ARG_DECLARATION}
    COMMENT "Generating the ${model} model classes"
    VERBATIM)
  set(${ARG_SOURCES} ${outputs} PARENT_SCOPE)
endfunction()
