<?xml version="1.0"?>
<asdf>
  <scene_setup>
    <volume>0</volume>
    <reference>
      <position x="0" y="0"/>
      <orientation azimuth="90"/>
    </reference>
    <source name="s1" model="point" mute="false" volume="0">
      <port>1</port>
      <position x="1.927" y="0.534"/>
      <orientation azimuth="195.489"/>
    </source>
    <source name="s2" model="point" mute="false" volume="0">
      <port>2</port>
      <position x="-0.534" y="1.927"/>
      <orientation azimuth="-74.5112"/>
    </source>
    <source name="s3" model="point" mute="false" volume="0">
      <port>3</port>
      <position x="-1.927" y="-0.534"/>
      <orientation azimuth="15.4888"/>
    </source>
    <source name="s4" model="point" mute="false" volume="0">
      <port>4</port>
      <position x="0.534" y="-1.927"/>
      <orientation azimuth="105.489"/>
    </source>
  </scene_setup>
</asdf>
