# Fails when a layer includes one above it: platform/ includes nothing of the workstation's own,
# no subsystem includes the app layer (they tell the main window things by signals), and publishing,
# which reads the plant and the records, is read by nothing below it.
# Run with: cmake -DSOURCE_DIR=<repo>/src -P check_layers.cmake
set(breaches "")
function(check folder pattern)
    file(GLOB files "${SOURCE_DIR}/${folder}/*.h" "${SOURCE_DIR}/${folder}/*.cpp")
    foreach(file ${files})
        file(STRINGS "${file}" lines REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
        foreach(line ${lines})
            if(line MATCHES "${pattern}")
                list(APPEND breaches "${file}: ${line}")
            endif()
        endforeach()
    endforeach()
    set(breaches "${breaches}" PARENT_SCOPE)
endfunction()

check(platform "\"(\\.\\./)*(app|plant|records|security|displays|control|publish)/")
foreach(folder plant records security displays control)
    check(${folder} "\"(\\.\\./)*(app|publish)/")
endforeach()
check(publish "\"(\\.\\./)*app/")

if(breaches)
    list(JOIN breaches "\n" text)
    message(FATAL_ERROR "Includes against the layers:\n${text}")
endif()
message(STATUS "Layers: every include points down")
