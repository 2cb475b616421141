# The networking tests reach the version seam of the server socket and run a Python peer.
target_include_directories(${exe} PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(${exe} PRIVATE
    VELMORA_NET_PEER="${CMAKE_CURRENT_SOURCE_DIR}/net/peer.py")
