add_subdirectory(zdefault)
