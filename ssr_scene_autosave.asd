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
      <position x="0.593" y="-1.91"/>
      <orientation azimuth="107.248"/>
    </source>
    <source name="s2" model="point" mute="false" volume="0">
      <port>2</port>
      <position x="0.954" y="-1.758"/>
      <orientation azimuth="118.487"/>
    </source>
    <source name="s3" model="point" mute="false" volume="0">
      <port>3</port>
      <position x="1.279" y="-1.538"/>
      <orientation azimuth="129.747"/>
    </source>
    <source name="s4" model="point" mute="false" volume="0">
      <port>4</port>
      <position x="1.554" y="-1.259"/>
      <orientation azimuth="140.987"/>
    </source>
    <source name="s5" model="point" mute="false" volume="0">
      <port>5</port>
      <position x="1.77" y="-0.931"/>
      <orientation azimuth="152.256"/>
    </source>
    <source name="s6" model="point" mute="false" volume="0">
      <port>6</port>
      <position x="1.918" y="-0.568"/>
      <orientation azimuth="163.504"/>
    </source>
    <source name="s7" model="point" mute="false" volume="0">
      <port>7</port>
      <position x="1.992" y="-0.183"/>
      <orientation azimuth="174.751"/>
    </source>
    <source name="s8" model="point" mute="false" volume="0">
      <port>8</port>
      <position x="1.989" y="0.209"/>
      <orientation azimuth="185.999"/>
    </source>
    <source name="s9" model="point" mute="false" volume="0">
      <port>9</port>
      <position x="1.91" y="0.593"/>
      <orientation azimuth="197.248"/>
    </source>
    <source name="s10" model="point" mute="false" volume="0">
      <port>10</port>
      <position x="1.758" y="0.954"/>
      <orientation azimuth="208.487"/>
    </source>
    <source name="s11" model="point" mute="false" volume="0">
      <port>11</port>
      <position x="1.538" y="1.279"/>
      <orientation azimuth="219.747"/>
    </source>
    <source name="s12" model="point" mute="false" volume="0">
      <port>12</port>
      <position x="1.259" y="1.554"/>
      <orientation azimuth="230.987"/>
    </source>
    <source name="s13" model="point" mute="false" volume="0">
      <port>13</port>
      <position x="0.931" y="1.77"/>
      <orientation azimuth="242.256"/>
    </source>
    <source name="s14" model="point" mute="false" volume="0">
      <port>14</port>
      <position x="0.568" y="1.918"/>
      <orientation azimuth="253.504"/>
    </source>
    <source name="s15" model="point" mute="false" volume="0">
      <port>15</port>
      <position x="0.183" y="1.992"/>
      <orientation azimuth="264.751"/>
    </source>
    <source name="s16" model="point" mute="false" volume="0">
      <port>16</port>
      <position x="-0.209" y="1.989"/>
      <orientation azimuth="-84.0015"/>
    </source>
    <source name="s17" model="point" mute="false" volume="0">
      <port>17</port>
      <position x="-0.593" y="1.91"/>
      <orientation azimuth="-72.7519"/>
    </source>
    <source name="s18" model="point" mute="false" volume="0">
      <port>18</port>
      <position x="-0.954" y="1.758"/>
      <orientation azimuth="-61.513"/>
    </source>
    <source name="s19" model="point" mute="false" volume="0">
      <port>19</port>
      <position x="-1.279" y="1.538"/>
      <orientation azimuth="-50.2531"/>
    </source>
    <source name="s20" model="point" mute="false" volume="0">
      <port>20</port>
      <position x="-1.554" y="1.259"/>
      <orientation azimuth="-39.0133"/>
    </source>
    <source name="s21" model="point" mute="false" volume="0">
      <port>21</port>
      <position x="-1.77" y="0.931"/>
      <orientation azimuth="-27.7439"/>
    </source>
    <source name="s22" model="point" mute="false" volume="0">
      <port>22</port>
      <position x="-1.918" y="0.568"/>
      <orientation azimuth="-16.4962"/>
    </source>
    <source name="s23" model="point" mute="false" volume="0">
      <port>23</port>
      <position x="-1.992" y="0.183"/>
      <orientation azimuth="-5.24889"/>
    </source>
    <source name="s24" model="point" mute="false" volume="0">
      <port>24</port>
      <position x="-1.989" y="-0.209"/>
      <orientation azimuth="5.9985"/>
    </source>
    <source name="s25" model="point" mute="false" volume="0">
      <port>25</port>
      <position x="-1.91" y="-0.593"/>
      <orientation azimuth="17.2481"/>
    </source>
    <source name="s26" model="point" mute="false" volume="0">
      <port>26</port>
      <position x="-1.758" y="-0.954"/>
      <orientation azimuth="28.487"/>
    </source>
    <source name="s27" model="point" mute="false" volume="0">
      <port>27</port>
      <position x="-1.538" y="-1.279"/>
      <orientation azimuth="39.7469"/>
    </source>
    <source name="s28" model="point" mute="false" volume="0">
      <port>28</port>
      <position x="-1.259" y="-1.554"/>
      <orientation azimuth="50.9867"/>
    </source>
    <source name="s29" model="point" mute="false" volume="0">
      <port>29</port>
      <position x="-0.931" y="-1.77"/>
      <orientation azimuth="62.2561"/>
    </source>
    <source name="s30" model="point" mute="false" volume="0">
      <port>30</port>
      <position x="-0.568" y="-1.918"/>
      <orientation azimuth="73.5038"/>
    </source>
    <source name="s31" model="point" mute="false" volume="0">
      <port>31</port>
      <position x="-0.183" y="-1.992"/>
      <orientation azimuth="84.7511"/>
    </source>
    <source name="s32" model="point" mute="false" volume="0">
      <port>32</port>
      <position x="0.209" y="-1.989"/>
      <orientation azimuth="95.9985"/>
    </source>
  </scene_setup>
</asdf>
