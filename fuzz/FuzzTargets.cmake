# The targets, named after what they drive: for libFuzzer (fuzz/) and for the replay of the saved inputs (tests/fuzz/).
#   fuzzSources_NAME  the function and what only it needs
#   fuzzSeeds_NAME    what the seeds are made with, beside these
#   fuzzLinks_NAME    libraries
set(fuzzFolder ${CMAKE_CURRENT_LIST_DIR})
set(fuzzTargets gvcp acknowledge discovery gvsp description xml gentl)

function(fuzz_target name)
    cmake_parse_arguments(ARG "" "" "SOURCES;SEEDS;LINKS" ${ARGN})
    list(TRANSFORM ARG_SOURCES PREPEND ${fuzzFolder}/)
    list(TRANSFORM ARG_SEEDS PREPEND ${fuzzFolder}/)
    set(fuzzSources_${name} ${ARG_SOURCES} PARENT_SCOPE)
    set(fuzzSeeds_${name} ${ARG_SEEDS} PARENT_SCOPE)
    set(fuzzLinks_${name} ${ARG_LINKS} PARENT_SCOPE)
endfunction()

fuzz_target(gvcp SOURCES GvcpFuzz.cpp LINKS orv_simulator_gige)
fuzz_target(acknowledge SOURCES AcknowledgeFuzz.cpp SEEDS AcknowledgeSeeds.cpp LINKS orv_producer)
fuzz_target(discovery SOURCES DiscoveryFuzz.cpp SEEDS DiscoverySeeds.cpp LINKS orv_producer)
fuzz_target(gvsp SOURCES GvspFuzz.cpp PacketWire.cpp SEEDS GvspSeeds.cpp LINKS orv_producer orv_simulator_gige)
fuzz_target(description
    SOURCES DescriptionFuzz.cpp
    SEEDS DescriptionSeeds.cpp ../tests/orvcam/ZipMaker.cpp
    LINKS orv_producer orv_orvcam ZLIB::ZLIB)
fuzz_target(xml SOURCES XmlFuzz.cpp SEEDS XmlSeeds.cpp LINKS orv_orvcam)
fuzz_target(gentl
    SOURCES GentlFuzz.cpp GentlArguments.cpp ToyTransport.cpp ../platform/producer/Exports.cpp
    SEEDS GentlSeeds.cpp
    LINKS orv_producer)
