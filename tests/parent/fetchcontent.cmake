include(FetchContent)
FetchContent_Declare(zdefault SOURCE_DIR ${CMAKE_SOURCE_DIR}/zdefault)
FetchContent_MakeAvailable(zdefault)
