# How the program binds its libraries.
