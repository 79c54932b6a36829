// Gives a target that exists only for its precompiled headers something to compile.
