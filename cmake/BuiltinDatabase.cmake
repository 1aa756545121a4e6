# The data of the compiled-in CTS/CSE test database, written as C++ source when the library is
# built: from the owner's licensed copy where RAVO_CTSCSE_DIR names its folder, else as stand-ins.
set(RAVO_CTSCSE_DIR "" CACHE PATH
    "Folder with the licensed CTS/CSE data in the neutral text form (docs/builtin-database.md)")

function(ravo_list_licensed_files result)
    file(STRINGS ${PROJECT_SOURCE_DIR}/engine/CTSCSERecords.def records REGEX "^CTSCSE_(RECORD|NOISE)\\(")
    set(files "")
    set(missing "")
    foreach(record IN LISTS records)
        if(record MATCHES "^CTSCSE_RECORD.*\"(.*)\"")
            set(name ${CMAKE_MATCH_1})
        elseif(record MATCHES "^CTSCSE_NOISE\\((.*)\\)")
            set(name NOISE_${CMAKE_MATCH_1})
        endif()
        if(EXISTS ${RAVO_CTSCSE_DIR}/${name}.txt)
            list(APPEND files ${RAVO_CTSCSE_DIR}/${name}.txt)
        else()
            list(APPEND missing ${name})
        endif()
    endforeach()
    if(missing)
        list(JOIN missing " " names)
        message(WARNING "${RAVO_CTSCSE_DIR} has no file for these; stand-ins take their place: ${names}")
    endif()
    set(${result} ${files} PARENT_SCOPE)
endfunction()

set(RAVO_LICENSED_FILES "")
if(RAVO_CTSCSE_DIR)
    ravo_list_licensed_files(RAVO_LICENSED_FILES)
endif()

add_executable(ravo-ctscse-generate
    builtin/generate.cpp builtin/AnalyticalBeat.cpp builtin/Catalogue.cpp
    builtin/GeneratedSource.cpp builtin/MultileadBeat.cpp builtin/NeutralText.cpp
    builtin/NoiseStandIns.cpp builtin/RecordStandIns.cpp builtin/Beat.cpp)
target_include_directories(ravo-ctscse-generate PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(ravo-ctscse-generate PRIVATE ravo_warnings)
target_compile_options(ravo-ctscse-generate PRIVATE -ffp-contract=off)

set(RAVO_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${RAVO_GENERATED_DIR})
set(RAVO_BUILTIN_SOURCES
    ${RAVO_GENERATED_DIR}/CTSCSE_DatabaseData.cpp ${RAVO_GENERATED_DIR}/CTSCSE_NoiseData.cpp)
add_custom_command(
    OUTPUT ${RAVO_BUILTIN_SOURCES}
    COMMAND ravo-ctscse-generate ${RAVO_GENERATED_DIR} ${RAVO_CTSCSE_DIR}
    DEPENDS ravo-ctscse-generate ${RAVO_LICENSED_FILES}
    COMMENT "Generating the compiled-in CTS/CSE test database"
    VERBATIM)
