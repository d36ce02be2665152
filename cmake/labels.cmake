# Read by ctest. Every unit test is labelled with the name of its suite (which is the name of its file) without
# "Test", in lower case: ThreadsTest.X has the label "threads".
foreach(name IN LISTS quorvel_test_names)
    string(REGEX MATCH "([A-Za-z0-9]+)Test\\." suite "${name}")
    if(suite)
        string(TOLOWER "${CMAKE_MATCH_1}" label)
        set_tests_properties("${name}" PROPERTIES LABELS "${label}")
    endif()
endforeach()
