# The warning set of every target of this project.
function(velmora_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wnon-virtual-dtor
        -Wcast-align -Wformat=2)
    if(VELMORA_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
