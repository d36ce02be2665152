# Read by ctest. Every unit test is labelled with the name of its suite without "Test", in lower case: ThreadsTest.X
# has the label "threads", SpiFlash.X "spiflash".
foreach(name IN LISTS quorvel_test_names)
    string(REGEX MATCH "([A-Za-z0-9]+)\\." suite "${name}")
    string(REGEX REPLACE "Test$" "" label "${CMAKE_MATCH_1}")
    string(TOLOWER "${label}" label)
    set_tests_properties("${name}" PROPERTIES LABELS "${label}")
endforeach()
