# Makes the seed corpus of the fuzz targets in OUT with ffmpeg, sox, vorbiscomment
# and AtomicParsley, copies the text seeds (cue sheets, CDDB answers, property
# lists, Base64) beside them and adds the sample files of tests/data:
# cmake -DOUT=folder -P make_seed_corpus.cmake
find_program(FFMPEG ffmpeg REQUIRED)
find_program(ATOMICPARSLEY AtomicParsley REQUIRED)
find_program(SOX sox REQUIRED)
find_program(VORBISCOMMENT vorbiscomment REQUIRED)
find_program(PRINTF printf REQUIRED)
find_program(CAT cat REQUIRED)
find_program(BASE64 base64 REQUIRED)
file(REMOVE_RECURSE ${OUT})
file(MAKE_DIRECTORY ${OUT}/asf ${OUT}/mp4 ${OUT}/ogg ${OUT}/pcm ${OUT}/mp3 ${OUT}/payload ${OUT}/work)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/seeds/ DESTINATION ${OUT})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE errors)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGN} failed: ${errors}")
  endif()
endfunction()

set(SINE -v error -y -f lavfi -i sine=frequency=330:duration=0.4)
set(TAGS -metadata title=Seed -metadata artist=Fuzzer -metadata album=Corpus
         -metadata genre=Rock -metadata track=3/12 -metadata date=2020)
run(${FFMPEG} ${SINE} ${TAGS} -metadata WM/Year=2020 -c:a wmav2 -b:a 32k ${OUT}/asf/tagged.wma)
run(${FFMPEG} ${SINE} -c:a wmav1 -b:a 32k ${OUT}/asf/untagged.wma)
# The objects of the header without the header object around them: the walk
# then has no object count to stop it.
find_program(TAIL tail REQUIRED)
execute_process(COMMAND ${TAIL} -c +31 ${OUT}/asf/tagged.wma OUTPUT_FILE ${OUT}/asf/headerless.wma RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "tail failed")
endif()

run(${FFMPEG} ${SINE} ${TAGS} -c:a aac -b:a 32k -movflags +faststart ${OUT}/mp4/faststart.m4a)
run(${FFMPEG} ${SINE} ${TAGS} -c:a aac -b:a 32k ${OUT}/mp4/moov-last.m4a)
run(${FFMPEG} -v error -y -f lavfi -i color=c=red:s=8x6 -frames:v 1 ${OUT}/work/cover.png)
run(${FFMPEG} -v error -y -f lavfi -i color=c=blue:s=6x4 -frames:v 1 ${OUT}/work/back.jpg)
run(${ATOMICPARSLEY} ${OUT}/mp4/faststart.m4a --overWrite --genre Rock --information seed
    --artwork ${OUT}/work/cover.png --artwork ${OUT}/work/back.jpg)

# Ogg Vorbis with comments, and with a picture block (PNG, type 3) in a METADATA_BLOCK_PICTURE entry.
run(${FFMPEG} ${SINE} ${TAGS} -c:a libvorbis -q:a 0 ${OUT}/ogg/tagged.ogg)
file(SIZE ${OUT}/work/cover.png cover_size)
math(EXPR cover_size "${cover_size}" OUTPUT_FORMAT HEXADECIMAL)
string(SUBSTRING "00000000${cover_size}" 0 -1 padded)
string(LENGTH "${padded}" padded_length)
math(EXPR from "${padded_length} - 8")
string(SUBSTRING "${padded}" ${from} 8 size_hex)
string(REPLACE "x" "0" size_hex "${size_hex}")
string(REGEX REPLACE "(..)" "\\\\x\\1" size_escaped "${size_hex}")
execute_process(COMMAND ${PRINTF} "\\x00\\x00\\x00\\x03\\x00\\x00\\x00\\x09image/png\\x00\\x00\\x00\\x05front\\x00\\x00\\x00\\x08\\x00\\x00\\x00\\x06\\x00\\x00\\x00\\x18\\x00\\x00\\x00\\x00${size_escaped}"
                OUTPUT_FILE ${OUT}/work/block-head RESULT_VARIABLE status)
execute_process(COMMAND ${CAT} ${OUT}/work/block-head ${OUT}/work/cover.png OUTPUT_FILE ${OUT}/ogg/picture-block.bin)
execute_process(COMMAND ${BASE64} -w0 ${OUT}/ogg/picture-block.bin OUTPUT_VARIABLE block_base64)
file(WRITE ${OUT}/base64/picture-block.txt "${block_base64}")
file(COPY ${OUT}/ogg/tagged.ogg DESTINATION ${OUT}/work)
run(${VORBISCOMMENT} -a -t "METADATA_BLOCK_PICTURE=${block_base64}" -t "ARTIST=Second"
    ${OUT}/work/tagged.ogg ${OUT}/ogg/picture.ogg)
file(COPY ${OUT}/ogg/tagged.ogg DESTINATION ${OUT}/payload)

# PCM headers: WAV of each sample width and float, extensible WAV, AIFF and AIFF-C.
set(SHORT -v error -y -f lavfi -i sine=frequency=330:duration=0.02)
run(${FFMPEG} ${SHORT} -c:a pcm_s16le ${OUT}/pcm/s16.wav)
run(${FFMPEG} ${SHORT} -c:a pcm_u8 ${OUT}/pcm/u8.wav)
run(${FFMPEG} ${SHORT} -c:a pcm_s24le ${OUT}/pcm/s24.wav)
run(${FFMPEG} ${SHORT} -c:a pcm_f32le ${OUT}/pcm/f32.wav)
run(${FFMPEG} ${SHORT} -ac 3 -c:a pcm_s16le ${OUT}/pcm/extensible.wav)
run(${FFMPEG} ${SHORT} -c:a pcm_s16be ${OUT}/pcm/s16.aiff)
run(${FFMPEG} ${SHORT} -c:a pcm_s16le -f aiff ${OUT}/pcm/sowt.aifc)
run(${SOX} ${OUT}/pcm/s16.wav -e signed-integer -b 32 ${OUT}/pcm/s32.aifc)

# MP3 with ID3v2.3 and ID3v1, and with ID3v2.4 and a picture.
run(${FFMPEG} ${SINE} ${TAGS} -c:a libmp3lame -b:a 32k -id3v2_version 3 -write_id3v1 1 ${OUT}/mp3/v23.mp3)
run(${FFMPEG} ${SINE} -i ${OUT}/work/cover.png -map 0 -map 1 ${TAGS} -c:a libmp3lame -b:a 32k -c:v copy
    -id3v2_version 4 ${OUT}/mp3/v24-picture.mp3)
file(COPY ${OUT}/mp3/v23.mp3 ${OUT}/mp4/moov-last.m4a DESTINATION ${OUT}/payload)

# The sample files of the tests.
if(DATA)
  file(GLOB samples_mp3 ${DATA}/*.mp3)
  file(GLOB samples_mp4 ${DATA}/*.m4a)
  file(COPY ${samples_mp3} DESTINATION ${OUT}/mp3)
  file(COPY ${samples_mp4} DESTINATION ${OUT}/mp4)
  file(COPY ${samples_mp3} ${samples_mp4} DESTINATION ${OUT}/payload)
endif()
file(REMOVE_RECURSE ${OUT}/work)
