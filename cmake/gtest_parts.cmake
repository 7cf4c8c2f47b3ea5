# Tests of one program as a few entries of ctest, each a process that runs its share of them: a
# process for each test would spend its time on starting. script/test counts the single tests in the
# reports under gtest/, which the environment asks for. A fourth argument is gtest's filter.
function(tessel_add_gtest program label parts)
  math(EXPR last "${parts} - 1")
  set(filter)
  if(ARGC GREATER 3)
    set(filter ";GTEST_FILTER=${ARGV3}")
  endif()
  foreach(part RANGE ${last})
    set(name ${program}.${part})
    add_test(NAME ${name} COMMAND ${program})
    # The long ones first, so that none runs alone at the end.
    set_tests_properties(${name} PROPERTIES
      LABELS ${label} SKIP_RETURN_CODE 77 COST 1000
      ENVIRONMENT "GTEST_TOTAL_SHARDS=${parts};GTEST_SHARD_INDEX=${part};GTEST_OUTPUT=xml:${CMAKE_BINARY_DIR}/gtest/${name}.xml${filter}")
  endforeach()
endfunction()
